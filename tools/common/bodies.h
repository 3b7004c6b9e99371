// The bodies of the commands by which a manager and a host come together and part.
#pragma once

#include "base/text.h"

#include <string>
#include <vector>

struct manager_record {
    std::string guid;
    std::vector<std::string> ips;
    optional_text target_iqn;
};

// What a manager sends about itself.
std::string manager_document(const manager_record &manager);

// A manager and a client that belongs to it.
std::string pair_document(const std::string &server_guid, const std::string &client_guid);
