// The compact form of the client record that local tools read.
#pragma once

#include "base/text.h"
#include "client/client.h"

#include <memory>

// The document of C without indentation; absent for a null record. Takes the content_lock only, so that it
// waits for no command.
optional_text qel_to_xml(const qel_t *c);

// A new record from such a document; null for a null text and, after a log line, for one that is none.
std::unique_ptr<qel_t> xml_to_qel(const char *text);
