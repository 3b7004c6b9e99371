// IPv4 addresses as text.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>

#include <string>

inline std::string dotted(in_addr_t addr)
{
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &addr, text, sizeof text);
    return text;
}

// The addresses of a list of records with single blanks between them, as much as fits the 512 bytes that
// readers expect at most: none is added once the text is longer than 495 characters.
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
