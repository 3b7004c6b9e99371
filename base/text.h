// Small helpers for texts and lists.
#pragma once

#include <cstdlib>
#include <list>
#include <memory>
#include <new>
#include <optional>
#include <string>

struct text_free {
    void operator()(char *text) const noexcept { std::free(text); }
};

// A text from malloc, as C interfaces hand it over.
using malloc_text = std::unique_ptr<char, text_free>;

using optional_text = std::optional<std::string>;

// A C text that may be null.
inline optional_text optional_copy(const char *text)
{
    return text ? optional_text(text) : std::nullopt;
}

// The C view of a text that may be absent: null for an absent one. Lives as long as TEXT is unchanged.
inline const char *c_text(const optional_text &text)
{
    return text ? text->c_str() : nullptr;
}

// The same for a "%s" of a log line, where null may not stand.
inline const char *printable(const optional_text &text)
{
    return text ? text->c_str() : "(null)";
}

// A new element at the tail of LIST, or null when memory is short.
template <class T>
T *list_append(std::list<T> &list) noexcept
{
    try {
        return &list.emplace_back();
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}
