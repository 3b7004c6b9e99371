// Databases for the CDP agent. Handlers of the command table, see command_handler. Both always answer with a
// document that repeats the status.
#pragma once

struct request;

// Passes a database's configuration to the CDP agent library, unless the library already has one of that
// name.
int db_set(request *req);

// Removes a database's configuration from the library.
int dbcfg_del(request *req);
