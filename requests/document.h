// What the parsers of request documents share, and the rules that hold for all of them.
//
// A parser takes the NUL-terminated body of one request and logs what is wrong with it; a null body cannot be
// read. It does not change the daemon's state and takes no lock. When it fails, results that it has already
// stored through a pointer stay. Pointers must not be null unless the function says otherwise.
#pragma once

#include "base/xml.h"

#include <string>

// The log lines for a text that is not a request document.
struct document_messages {
    const char *unreadable = "Failed to parse xml document";
    const char *empty = "Empty xml document";
    const char *wrong_root = "Error: xml's root node must be 'Tessaron'";
};

// The document of TEXT, whose root must be "Tessaron"; null after a log line, also for a null TEXT.
xml_doc open_document(const char *text, const document_messages &messages = {});

// The first child of the root if it is an element of that name; else null.
const xmlNode *first_child_named(const xml_doc &doc, const char *name);

// Stores the attribute in VALUE; leaves VALUE unchanged if NODE does not have it.
void copy_attribute(const xmlNode *node, const char *name, std::string *value);

// Only "1" is true; any other text, or an absent one, is false.
bool is_true(const optional_text &value);

// Reduces "kav_{GUID}" to "GUID", the part between the first '{' and the next '}'. A text with nothing before
// the brace or nothing inside stays unchanged.
void take_braced(std::string &text);

// The same by position: drops five characters at the front and one at the end. Empty for a shorter text.
std::string drop_wrapping(const std::string &text);
