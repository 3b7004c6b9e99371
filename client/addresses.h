// IPv4 addresses as text.
#pragma once

#include "base/text.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <list>
#include <string>
#include <string_view>

inline std::string dotted(in_addr_t addr)
{
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &addr, text, sizeof text);
    return text;
}

// The addresses of a list of records, separated by single blanks. Readers expect at most 512 bytes: once the
// text is longer than 495 characters, no more addresses are added.
template <class Addresses>
std::string join_addresses(const Addresses &addresses)
{
    constexpr size_t last_length_with_room = 495;
    std::string text;
    for (const auto &entry : addresses) {
        if (text.size() > last_length_with_room)
            break;
        if (!text.empty())
            text += ' ';
        text += dotted(entry.addr);
    }
    return text;
}

// Appends the addresses of TEXT, which are separated by blanks, to a list of such records. An invalid address
// becomes 0.0.0.0. Throws std::bad_alloc: a list that lacks its first address would look like a manager that
// has moved.
template <class Address>
void append_addresses(std::string_view text, std::list<Address> &addresses)
{
    for (;;) {
        const size_t begin = text.find_first_not_of(' ');
        if (begin == std::string_view::npos)
            return;
        text.remove_prefix(begin);
        const size_t length = std::min(text.find(' '), text.size());
        const std::string address(text.substr(0, length));
        inet_pton(AF_INET, address.c_str(), &addresses.emplace_back().addr);
        text.remove_prefix(length);
    }
}
