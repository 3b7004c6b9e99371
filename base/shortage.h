// Work that ends when memory runs out, without ending the process.
#pragma once

#include "base/log.h"

#include <new>

// Runs WORK. Returns false after an error line if it threw std::bad_alloc.
template <class Work>
bool end_at_shortage(Work &&work)
{
    try {
        work();
        return true;
    } catch (const std::bad_alloc &) {
        log_error("Failed to allocate memory");
        return false;
    }
}
