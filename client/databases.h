// The databases of this host that the CDP agent library holds still while it takes a snapshot. The library
// keeps their configuration, passwords included; the inventory only mirrors it.
#pragma once

#include "client/inventory.h"

// Replaces LIST by the databases that the library lists. Returns 0, or -1.
int qel_get_dbs(std::list<qel_db_t> *list);

// Replaces the inventory's databases by those that the library lists now. The caller does not hold the
// inventory's lock.
void qel_refresh_databases();

// Hands the database to the library, which connects to it and keeps a copy. Returns -1 on failure. Takes no
// lock.
int qel_connect_database(qel_db_t &database);
