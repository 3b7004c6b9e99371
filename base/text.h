// Small helpers for texts and lists.
#pragma once

#include "base/deleter.h"

#include <cstdlib>
#include <list>
#include <memory>
#include <new>
#include <optional>
#include <string>

// A text from malloc, as C interfaces return it.
using malloc_text = std::unique_ptr<char, deleter<std::free>>;

using optional_text = std::optional<std::string>;

// A copy of TEXT; absent for null.
inline optional_text optional_copy(const char *text)
{
    return text ? optional_text(text) : std::nullopt;
}

// TEXT as a C text, null if absent. Valid until TEXT changes.
inline const char *c_text(const optional_text &text)
{
    return text ? text->c_str() : nullptr;
}

// The same for "%s" in a log line, where null is not allowed.
inline const char *printable(const optional_text &text)
{
    return text ? text->c_str() : "(null)";
}

// Appends a new element to LIST and returns it; null when out of memory.
template <class T>
T *list_append(std::list<T> &list) noexcept
{
    try {
        return &list.emplace_back();
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}
