// The commands that the stand-in manager sends to a host. Each prints what the host says and returns the
// tool's exit status: 0, or 1 after a complaint if the host could not be reached or refused.
#pragma once

#include "tools/common/bodies.h"

#include <string>

struct host_options {
    std::string host; // "ADDR[:PORT]"
    unsigned timeout = 60;
};

int scan(const host_options &wanted);

// A manager without addresses gets the local address of the connection to the host.
int adopt(const host_options &wanted, manager_record manager);

// If CLIENT_GUID is empty, the host is asked for it first. A host that has none cannot obey: the service
// whose FOLDER of state that is then ends the adoption with its answer to the next heartbeat.
int release(const host_options &wanted, const std::string &manager_guid, std::string client_guid,
            const std::string &folder);

// Complains on standard error and returns 1.
int complain(const std::string &what, const std::string &why);
