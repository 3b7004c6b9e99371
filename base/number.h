// Numbers from texts, parsed as leniently as scanf does: leading blanks and a sign are accepted, anything
// after the digits is ignored, and a text that does not begin with a number gives 0. A value out of range
// becomes the nearest 64-bit limit; the 32-bit forms keep the lower 32 bits.
#pragma once

#include <cstdint>
#include <cstdlib>

inline int64_t scan_signed(const char *text)
{
    return strtoll(text, nullptr, 10);
}

inline int scan_int(const char *text)
{
    return static_cast<int>(scan_signed(text));
}

// A negative number is taken modulo 2^64, as "%lu" does.
inline uint64_t scan_unsigned(const char *text)
{
    return strtoull(text, nullptr, 10);
}

inline uint32_t scan_u32(const char *text)
{
    return static_cast<uint32_t>(scan_unsigned(text));
}
