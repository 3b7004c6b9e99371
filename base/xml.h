// A thin layer over libxml2: documents that free themselves, attributes and contents as std::string, and a
// writer that accepts any bytes.
//
// Nodes are owned by their document. Nothing here locks: a document belongs to one thread.
#pragma once

#include "base/deleter.h"
#include "base/secret.h"
#include "base/text.h"

#include <libxml/tree.h>

#include <cstdint>
#include <memory>
#include <string>

using xml_doc = std::unique_ptr<xmlDoc, deleter<xmlFreeDoc>>;

// A node that no document owns yet.
using xml_node = std::unique_ptr<xmlNode, deleter<xmlFreeNode>>;

// --- Reading -----------------------------------------------------------------------------------------

// Call once per process, before any thread reads or writes XML.
void xml_init();

// A document from a NUL-terminated text, or from a file, with blank text nodes dropped and without any
// access to the network. Null when it is not well-formed or has a document type declaration; libxml2's own
// messages are not printed. A text that lost something because memory ran out counts as not well-formed; a
// file then throws std::bad_alloc, because a sound file must not be taken for a broken one. Both throw it if
// there is no memory for the parser itself.
xml_doc xml_parse_text(const char *text);
xml_doc xml_parse_file(const char *path);

// The root element; null if there is none.
xmlNode *xml_root(const xml_doc &doc);

bool xml_is_named(const xmlNode *node, const char *name);

// The value of an attribute; absent if NODE does not have it. This and xml_content throw std::bad_alloc when
// out of memory, because absent means something else.
optional_text xml_attribute(const xmlNode *node, const char *name);

// The same for a password.
secret_text xml_secret(const xmlNode *node, const char *name);

// While one exists, memory that libxml2 gives back in this thread is wiped: for a document with a password,
// from before it is parsed until after it is freed. Only one at a time, and only after xml_init.
struct xml_secrets {
    xml_secrets();
    ~xml_secrets();
    xml_secrets(const xml_secrets &) = delete;
    xml_secrets &operator=(const xml_secrets &) = delete;
};

// The text inside an element, including its children's; absent if the element is empty.
optional_text xml_content(const xmlNode *node);

// The first child element of NODE named NAME; null if there is none or NODE is null.
xmlNode *find_child(const xmlNode *node, const char *name);

// The children of a node in document order: for (xmlNode *child : xml_children{node})
struct xml_children {
    const xmlNode *parent;

    struct iterator {
        xmlNode *node;
        xmlNode *operator*() const { return node; }
        iterator &operator++()
        {
            node = node->next;
            return *this;
        }
        bool operator!=(const iterator &other) const { return node != other.node; }
    };
    iterator begin() const { return {parent ? parent->children : nullptr}; }
    iterator end() const { return {nullptr}; }
};

// --- Writing -----------------------------------------------------------------------------------------
// A value may hold any bytes: markup is escaped, and a byte that XML does not allow (not UTF-8, or a control
// character) becomes '?'. All of these throw std::bad_alloc when out of memory.

// A new document, version 1.0, with a root element of that name.
xml_doc xml_new_document(const char *root_name);

// An element without a parent.
xml_node xml_new_element(const char *name);

// A new child element at the tail of PARENT, empty or with TEXT as its content.
xmlNode *xml_add_element(xmlNode *parent, const char *name);
xmlNode *xml_add_element(xmlNode *parent, const char *name, const char *text);

// Appends an attribute, an empty one for a null VALUE. NODE must not have an attribute of that name.
void xml_add_attribute(xmlNode *node, const char *name, const char *value);
void xml_add_attribute(xmlNode *node, const char *name, const optional_text &value);
void xml_add_attribute(xmlNode *node, const char *name, const std::string &value);

// The same with decimal numbers.
void xml_add_number(xmlNode *node, const char *name, int64_t value);
void xml_add_unsigned(xmlNode *node, const char *name, uint64_t value);

// The document as text in "utf-8", the XML declaration first.
enum class xml_layout { compact, indented };
std::string xml_to_text(const xml_doc &doc, xml_layout layout = xml_layout::compact);
