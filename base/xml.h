// A thin layer over libxml2: documents that free themselves, attributes and contents as texts of our own,
// and a writer that can be handed any bytes.
//
// Nodes are owned by their document. Nothing here locks: a document belongs to one thread.
#pragma once

#include "base/text.h"

#include <libxml/tree.h>

#include <cstdint>
#include <memory>
#include <string>

struct xml_doc_free {
    void operator()(xmlDoc *doc) const noexcept { xmlFreeDoc(doc); }
};
using xml_doc = std::unique_ptr<xmlDoc, xml_doc_free>;

struct xml_node_free {
    void operator()(xmlNode *node) const noexcept { xmlFreeNode(node); }
};
// A node that no document owns yet.
using xml_node = std::unique_ptr<xmlNode, xml_node_free>;

// --- Reading -----------------------------------------------------------------------------------------

// Once per process, before any thread reads or writes XML.
void xml_init();

// A document from a NUL-terminated text, or from a file, with blank text nodes dropped and without any
// access to the network. Null when it is not well-formed; libxml2's own messages are not printed.
xml_doc xml_parse_text(const char *text);
xml_doc xml_parse_file(const char *path);

// The root element; null for none.
xmlNode *xml_root(const xml_doc &doc);

bool xml_is_named(const xmlNode *node, const char *name);

// The value of an attribute; empty optional when NODE has none of that NAME.
optional_text xml_attribute(const xmlNode *node, const char *name);

// The text inside an element, its children's included; empty optional when it holds no node at all.
optional_text xml_content(const xmlNode *node);

// The first child element of NODE named NAME; null for none, and for a null NODE.
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
// Any bytes may be handed over as a value: what markup would swallow is escaped, and a byte that may not
// stand in a document at all (not UTF-8, or a control character) becomes '?'.
// Memory that runs out throws std::bad_alloc.

// A new document, version 1.0, with a root element of that name.
xml_doc xml_new_document(const char *root_name);

// An element without a parent.
xml_node xml_new_element(const char *name);

// A new child element at the tail of PARENT, empty or with TEXT as its content.
xmlNode *xml_add_element(xmlNode *parent, const char *name);
xmlNode *xml_add_element(xmlNode *parent, const char *name, const char *text);

// Appends an attribute; a null VALUE gives an empty one. NODE must not have one of that name.
void xml_add_attribute(xmlNode *node, const char *name, const char *value);
void xml_add_attribute(xmlNode *node, const char *name, const optional_text &value);
void xml_add_attribute(xmlNode *node, const char *name, const std::string &value);

// The same with decimal numbers.
void xml_add_number(xmlNode *node, const char *name, int64_t value);
void xml_add_unsigned(xmlNode *node, const char *name, uint64_t value);

// The document as text in "utf-8", the XML declaration first.
enum class xml_layout { compact, indented };
std::string xml_to_text(const xml_doc &doc, xml_layout layout = xml_layout::compact);
