// A hash that every build of every program computes alike; std::hash may differ from one compiler to the
// next.
#pragma once

#include <cstdint>
#include <string_view>

// FNV-1a with 64 bits: for each byte, xor it in, then multiply by the prime.
constexpr uint64_t fnv1a_64(std::string_view bytes)
{
    constexpr uint64_t offset_basis = 0xcbf29ce484222325;
    constexpr uint64_t prime = 0x100000001b3;
    uint64_t hash = offset_basis;
    for (const char byte : bytes) {
        hash ^= static_cast<unsigned char>(byte);
        hash *= prime;
    }
    return hash;
}

// Published test values.
static_assert(fnv1a_64("") == 0xcbf29ce484222325);
static_assert(fnv1a_64("a") == 0xaf63dc4c8601ec8c);
static_assert(fnv1a_64("foobar") == 0x85944171f73967e8);
