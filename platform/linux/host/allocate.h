// Memory for C records, which is freed with free(). Each throws std::bad_alloc if there is none.
#pragma once

#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

template <class Record>
Record *zeroed()
{
    void *memory = calloc(1, sizeof(Record));
    if (!memory)
        throw std::bad_alloc();
    return static_cast<Record *>(memory);
}

inline char *text_copy(const std::string &text)
{
    char *copy = strdup(text.c_str());
    if (!copy)
        throw std::bad_alloc();
    return copy;
}
