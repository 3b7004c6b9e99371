// Passwords: their memory is wiped before it is given back, so that they are neither in a core dump nor in
// what another part of the process gets.
#pragma once

#include "base/deleter.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

inline void wipe(std::string &text)
{
    text.resize(text.capacity()); // a longer text may have been there
    explicit_bzero(text.data(), text.size());
    text.clear();
}

// Wipes the values of a record.
inline void wipe(std::vector<std::pair<std::string, std::string>> &fields)
{
    for (auto &[key, value] : fields)
        wipe(value);
}

// Wipes a text from malloc up to its NUL, and frees it.
inline void free_wiped(char *text)
{
    if (text)
        explicit_bzero(text, strlen(text));
    free(text);
}

// A text from malloc. A password belongs in one: a std::string leaves copies wherever a short one is moved.
using secret_text = std::unique_ptr<char, deleter<free_wiped>>;

// Wipes SECRET, which has a function wipe, at the end of the scope.
template <class T>
class wiped_at_end {
public:
    explicit wiped_at_end(T &secret) : secret_(secret) {}
    ~wiped_at_end() { wipe(secret_); }
    wiped_at_end(const wiped_at_end &) = delete;
    wiped_at_end &operator=(const wiped_at_end &) = delete;

private:
    T &secret_;
};

// Wipes what functions that have returned left on the stack of this thread, as deep as calls usually go.
[[gnu::noinline]] inline void wipe_dead_stack()
{
    char dead[64 * 1024];
    explicit_bzero(dead, sizeof dead);
}
