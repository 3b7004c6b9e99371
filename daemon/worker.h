// The working process: what the supervisor runs and restarts.
#pragma once

// Loads the client record, fills the inventory, starts the background threads, listens, and serves for ever.
// Cleans up and returns -1 if it cannot start or has no memory for a connection.
int _main();
