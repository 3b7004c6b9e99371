#include "base/xml.h"

#include <libxml/chvalid.h>
#include <libxml/parser.h>

#include <charconv>
#include <cstring>
#include <new>
#include <string_view>

namespace {
constexpr int parse_options = XML_PARSE_NOBLANKS | XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING;

struct xml_text_free {
    void operator()(xmlChar *text) const noexcept { xmlFree(text); }
};
using xml_text = std::unique_ptr<xmlChar, xml_text_free>;

const xmlChar *to_xml(const char *text)
{
    return reinterpret_cast<const xmlChar *>(text);
}

optional_text to_optional(const xml_text &text)
{
    return optional_copy(reinterpret_cast<const char *>(text.get()));
}

template <class T>
T *or_throw(T *result)
{
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
} // namespace

void xml_init()
{
    xmlInitParser();
}

xml_doc xml_parse_text(const char *text)
{
    return xml_doc(xmlReadMemory(text, static_cast<int>(strlen(text)), nullptr, nullptr, parse_options));
}

xml_doc xml_parse_file(const char *path)
{
    return xml_doc(xmlReadFile(path, nullptr, parse_options));
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
    return to_optional(xml_text(xmlGetNoNsProp(node, to_xml(name))));
}

optional_text xml_content(const xmlNode *node)
{
    if (!node->children)
        return std::nullopt;
    return to_optional(xml_text(xmlNodeGetContent(node)));
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
    xml_doc doc(or_throw(xmlNewDoc(to_xml("1.0"))));
    xmlDocSetRootElement(doc.get(), xml_new_element(root_name).release());
    return doc;
}

xml_node xml_new_element(const char *name)
{
    return xml_node(or_throw(xmlNewNode(nullptr, to_xml(name))));
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
    const xml_text text(or_throw(raw));
    return std::string(reinterpret_cast<const char *>(text.get()), static_cast<size_t>(size));
}
