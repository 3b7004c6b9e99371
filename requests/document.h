// What the parsers of request documents share.
#pragma once

#include "base/xml.h"

#include <string>

// What is logged when a text is no request document.
struct document_messages {
    const char *unreadable = "Failed to parse xml document";
    const char *empty = "Empty xml document";
    const char *wrong_root = "Error: xml's root node must be 'Tessaron'";
};

// The document of TEXT, whose root is "Tessaron"; null after a log line, for a null TEXT as well.
xml_doc open_document(const char *text, const document_messages &messages = {});

// The first child of the root when it is an element of that name; else null, as for a root without children.
const xmlNode *first_child_named(const xml_doc &doc, const char *name);

// Stores the attribute in VALUE, which stays as it was when there is none.
void copy_attribute(const xmlNode *node, const char *name, std::string *value);

// Only "1" is true; any other text is false, and so is an absent one.
bool is_true(const optional_text &value);

// "kav_{GUID}" to "GUID", by what is between the first '{' and the next '}'. A text without something before
// the brace and something within it stays as it is.
void take_braced(std::string &text);

// The same by position: five characters from the front, one from the end. Empty for a shorter text.
std::string drop_wrapping(const std::string &text);
