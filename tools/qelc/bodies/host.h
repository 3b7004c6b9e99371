// The bodies of the commands about the host itself.
#pragma once

#include <string>

// A host with another alias.
std::string alias_document(const std::string &alias);

struct channel_record {
    std::string initiator_iqn;
    std::string initiator_ip;
    std::string target_iqn;
    std::string target_ip; // ADDR[:PORT]
};

// An iSCSI channel for the host to open.
std::string channel_document(const channel_record &channel);
