// The client reset: ends the adoption of this host.
#pragma once

// Stops all periodic work, removes every protection, schedule and group, logs out of the manager's storage,
// removes the manager and rewrites the configuration file. A step that fails does not stop the others. While
// a reset runs, another returns at once. Runs tools, so it can take minutes; the caller holds no lock.
void _client_reset();
