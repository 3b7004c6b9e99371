// The compact form of the client record that local tools read.
#pragma once

#include "base/text.h"
#include "client/client.h"

#include <memory>

// The document of C without indentation; absent for a null record. Takes only the content_lock, so it does
// not wait for commands.
optional_text qel_to_xml(const qel_t *c);

// A new record from such a document; null for a null text and, after a log line, if it is not such a
// document. Nothing here calls it; it is part of the room's interface for a tool that reads local_list's
// answer.
std::unique_ptr<qel_t> xml_to_qel(const char *text);
