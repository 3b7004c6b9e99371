// The documents of the membership commands, and of the manager's answer to a heartbeat. See
// requests/document.h for the rules of all parsers.
#pragma once

#include "base/text.h"
#include "client/client.h"

#include <memory>
#include <string>

// The manager of "Server"; an empty record if the first child of the root is something else. Null if TEXT is
// null (without a log line) or is not a request document.
std::unique_ptr<qel_manager> xml_to_manager(const char *text);

// The alias in "Client"; absent if there is none.
optional_text xml_to_alias(const char *text);

// The GUIDs of "Server" and "Client". A result whose element is missing stays unchanged, also if the element
// has no GUID. A null argument is logged.
void xml_to_pair(std::string *server_guid, std::string *client_guid, const char *text);
