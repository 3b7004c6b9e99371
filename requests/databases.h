// The documents of the database commands. See requests/document.h for the rules of all parsers.
#pragma once

#include "base/text.h"
#include "client/inventory_records.h"

#include <memory>

// The database of "DBSet", without host and port; null on failure.
std::unique_ptr<qel_db_t> xml_to_KavApp(const char *text, bool *is_cluster);

// The instance that "DBCfgDel" names; absent if there is none. IS_CLUSTER is set only if the document has
// that attribute.
optional_text xml_to_instance_name(const char *text, bool *is_cluster);
