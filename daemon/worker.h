// The working process: what the supervisor runs and restarts.
#pragma once

// Loads the client record, fills the inventory, starts the background threads, listens, and serves for ever.
// Returns -1, cleaned up, when it cannot start or has run out of memory for connections.
int _main();
