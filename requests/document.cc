#include "requests/document.h"

#include "base/log.h"

xml_doc open_document(const char *text, const document_messages &messages)
{
    xml_doc doc = text ? xml_parse_text(text) : nullptr;
    if (!doc) {
        log_error("%s", messages.unreadable);
        return nullptr;
    }
    const xmlNode *root = xml_root(doc);
    if (!root) {
        log_error("%s", messages.empty);
        return nullptr;
    }
    if (!xml_is_named(root, "Tessaron")) {
        log_error("%s", messages.wrong_root);
        return nullptr;
    }
    return doc;
}

const xmlNode *first_child_named(const xml_doc &doc, const char *name)
{
    const xmlNode *child = xml_root(doc)->children;
    return child && xml_is_named(child, name) ? child : nullptr;
}

void copy_attribute(const xmlNode *node, const char *name, std::string *value)
{
    if (optional_text text = xml_attribute(node, name))
        *value = std::move(*text);
}

bool is_true(const optional_text &value)
{
    return value == "1";
}

void take_braced(std::string &text)
{
    const size_t open = text.find('{');
    if (open == 0 || open == std::string::npos)
        return;
    std::string inner = text.substr(open + 1, text.find('}', open) - open - 1);
    if (!inner.empty())
        text = std::move(inner);
}

std::string drop_wrapping(const std::string &text)
{
    constexpr size_t front = 5, back = 1;
    return text.size() > front + back ? text.substr(front, text.size() - front - back) : std::string();
}
