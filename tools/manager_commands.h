// The commands that the stand-in manager sends to a host. Each prints what the host says and returns the
// tool's exit status: 0, or 1 after a complaint when the host could not be reached or refused.
#pragma once

#include "tools/bodies.h"

#include <string>

struct host_options {
    std::string host; // "ADDR[:PORT]"
    unsigned timeout = 60;
};

int scan(const host_options &wanted);

// A manager without addresses is given the one that the connection to the host comes from.
int adopt(const host_options &wanted, manager_record manager);

// An empty CLIENT_GUID is asked of the host first.
int release(const host_options &wanted, const std::string &manager_guid, std::string client_guid);

// Complains on standard error and returns 1.
int complain(const std::string &what, const std::string &why);
