// The bodies of the commands for databases.
#pragma once

#include "base/text.h"

#include <string>

// An Oracle database of the host. What is absent is left out of the body.
struct database_record {
    std::string instance;
    optional_text user;
    optional_text password;
    optional_text oracle_home;
    bool archive_log = false;
};

// A database for the host to register.
std::string database_document(const database_record &database);

// A database for the host to forget.
std::string database_end_document(const std::string &instance);
