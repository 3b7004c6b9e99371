// The first configuration of a host.
#pragma once

#include "client/client.h"

#include <string>

// Writes a configuration with these ports and a new ClientGUID, which CONTENT gets, and gives it its name,
// unless there is a file of that name: what is there stays. Returns an error number; EEXIST for that.
int write_new_config(const std::string &path, qel_t &content);
