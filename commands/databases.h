// Databases for the CDP agent. Handlers of the command table, see command_handler. Both answer with a
// document that repeats the status, whatever it is.
#pragma once

struct request;

// Hands a database's configuration to the CDP agent library, unless it has one of that name.
int db_set(request *req);

// Removes it from there.
int dbcfg_del(request *req);
