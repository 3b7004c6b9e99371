// The databases of this host that the CDP agent library quiesces during a snapshot. The library keeps their
// configuration, passwords included; the inventory has a copy without these.
#pragma once

#include "client/inventory_records.h"

#include <list>

// Replaces the content of LIST by the databases that the library lists. Returns 0, or -1.
int qel_get_dbs(std::list<qel_db_t> *list);

// Passes the database to the library, which connects to it and keeps a copy. Returns -1 on failure. Takes no
// lock.
int qel_connect_database(qel_db_t &database);
