#include "base/xml.h"

#include "base/xml_memory.h"

#include <libxml/chvalid.h>
#include <libxml/parser.h>

#include <charconv>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>
#include <utility>

namespace {
constexpr int parse_options = XML_PARSE_NOBLANKS | XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING;

void free_text(xmlChar *text) // xmlFree is a variable
{
    xmlFree(text);
}
using xml_text = std::unique_ptr<xmlChar, deleter<free_text>>;

const xmlChar *to_xml(const char *text)
{
    return reinterpret_cast<const xmlChar *>(text);
}

optional_text to_optional(const xml_text &text)
{
    return optional_copy(reinterpret_cast<const char *>(text.get()));
}

// Passes on what libxml2 made, if memory was there for all of it.
template <class T>
T *or_throw(T *result)
{
    throw_if_xml_memory_ran_out();
    if (!result)
        throw std::bad_alloc();
    return result;
}

bool is_plain(const char *text)
{
    for (; *text; ++text) {
        const auto byte = static_cast<unsigned char>(*text);
        if (byte >= 0x7f || (byte < 0x20 && byte != '\t' && byte != '\n' && byte != '\r'))
            return false;
    }
    return true;
}

// Length in bytes of the character at TEXT when a document may hold it, else 0.
size_t allowed_length(const char *text)
{
    const auto lead = static_cast<unsigned char>(*text);
    const size_t length = lead < 0x80 ? 1 : (lead & 0xe0) == 0xc0 ? 2 : (lead & 0xf0) == 0xe0 ? 3 : 4;
    for (size_t i = 1; i < length; ++i) {
        if ((static_cast<unsigned char>(text[i]) & 0xc0) != 0x80)
            return 0;
    }
    int bytes = static_cast<int>(length);
    const int code = xmlGetUTF8Char(to_xml(text), &bytes);
    if (code < 0 || bytes != static_cast<int>(length) || !xmlIsCharQ(static_cast<unsigned>(code)))
        return 0;
    constexpr int shortest[] = {0, 0, 0x80, 0x800, 0x10000};
    return code >= shortest[length] ? length : 0;
}

std::string cleaned(const char *text)
{
    std::string clean;
    while (*text) {
        const size_t length = allowed_length(text);
        if (length == 0)
            clean += '?';
        else
            clean.append(text, length);
        text += length ? length : 1;
    }
    return clean;
}

template <class Number>
void add_decimal(xmlNode *node, const char *name, Number value)
{
    char text[24];
    *std::to_chars(text, text + sizeof text - 1, value).ptr = '\0';
    or_throw(xmlNewProp(node, to_xml(name), to_xml(text)));
}
using xml_parser = std::unique_ptr<xmlParserCtxt, deleter<xmlFreeParserCtxt>>;

// A few kilobytes of nested entities cost seconds and hundreds of megabytes, and nobody who talks to us needs
// any.
void refuse_document_type(void *context, const xmlChar *, const xmlChar *, const xmlChar *)
{
    auto *parser = static_cast<xmlParserCtxt *>(context);
    xmlStopParser(parser);
    parser->wellFormed = 0;
}

xml_parser new_parser()
{
    xml_memory_begin();
    xml_parser parser(or_throw(xmlNewParserCtxt()));
    parser->sax->internalSubset = refuse_document_type;
    return parser;
}
} // namespace

void xml_init()
{
    xml_memory_init();
    xmlInitParser();
}

xml_doc xml_parse_text(const char *text)
{
    const xml_parser parser = new_parser();
    xml_doc doc(xmlCtxtReadMemory(parser.get(), text, static_cast<int>(strlen(text)), nullptr, nullptr,
                                  parse_options));
    if (xml_memory_is_secret())
        xmlResetLastError(); // it may quote the document
    return xml_memory_ran_out() ? nullptr : std::move(doc);
}

xml_doc xml_parse_file(const char *path)
{
    const xml_parser parser = new_parser();
    xml_doc doc(xmlCtxtReadFile(parser.get(), path, nullptr, parse_options));
    throw_if_xml_memory_ran_out();
    return doc;
}

xmlNode *xml_root(const xml_doc &doc)
{
    return xmlDocGetRootElement(doc.get());
}

bool xml_is_named(const xmlNode *node, const char *name)
{
    return node->type == XML_ELEMENT_NODE && xmlStrEqual(node->name, to_xml(name));
}

optional_text xml_attribute(const xmlNode *node, const char *name)
{
    xml_memory_begin();
    const xml_text value(xmlGetNoNsProp(node, to_xml(name)));
    throw_if_xml_memory_ran_out();
    return to_optional(value);
}

secret_text xml_secret(const xmlNode *node, const char *name)
{
    xml_memory_begin();
    secret_text value(reinterpret_cast<char *>(xmlGetNoNsProp(node, to_xml(name))));
    throw_if_xml_memory_ran_out();
    return value;
}

optional_text xml_content(const xmlNode *node)
{
    if (!node->children)
        return std::nullopt;
    xml_memory_begin();
    const xml_text content(xmlNodeGetContent(node));
    throw_if_xml_memory_ran_out();
    return to_optional(content);
}

xmlNode *find_child(const xmlNode *node, const char *name)
{
    for (xmlNode *child : xml_children{node}) {
        if (xml_is_named(child, name))
            return child;
    }
    return nullptr;
}

xml_doc xml_new_document(const char *root_name)
{
    xml_memory_begin();
    xml_doc doc(xmlNewDoc(to_xml("1.0")));
    xmlDocSetRootElement(or_throw(doc.get()), xml_new_element(root_name).release());
    return doc;
}

xml_node xml_new_element(const char *name)
{
    xml_node node(xmlNewNode(nullptr, to_xml(name)));
    or_throw(node.get());
    return node;
}

xmlNode *xml_add_element(xmlNode *parent, const char *name)
{
    return or_throw(xmlNewChild(parent, nullptr, to_xml(name), nullptr));
}

xmlNode *xml_add_element(xmlNode *parent, const char *name, const char *text)
{
    if (!text)
        return xml_add_element(parent, name);
    const std::string clean = is_plain(text) ? std::string() : cleaned(text);
    return or_throw(
        xmlNewTextChild(parent, nullptr, to_xml(name), to_xml(clean.empty() ? text : clean.c_str())));
}

void xml_add_attribute(xmlNode *node, const char *name, const char *value)
{
    if (!value)
        value = "";
    if (is_plain(value))
        or_throw(xmlNewProp(node, to_xml(name), to_xml(value)));
    else
        or_throw(xmlNewProp(node, to_xml(name), to_xml(cleaned(value).c_str())));
}

void xml_add_attribute(xmlNode *node, const char *name, const optional_text &value)
{
    xml_add_attribute(node, name, c_text(value));
}

void xml_add_attribute(xmlNode *node, const char *name, const std::string &value)
{
    xml_add_attribute(node, name, value.c_str());
}

void xml_add_number(xmlNode *node, const char *name, int64_t value)
{
    add_decimal(node, name, value);
}

void xml_add_unsigned(xmlNode *node, const char *name, uint64_t value)
{
    add_decimal(node, name, value);
}

std::string xml_to_text(const xml_doc &doc, xml_layout layout)
{
    xmlChar *raw = nullptr;
    int size = 0;
    xmlDocDumpFormatMemoryEnc(doc.get(), &raw, &size, "utf-8", layout == xml_layout::indented);
    const xml_text text(raw);
    or_throw(raw);
    return std::string(reinterpret_cast<const char *>(text.get()), static_cast<size_t>(size));
}
