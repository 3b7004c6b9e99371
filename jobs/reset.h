// The client reset: an adopted host becomes one that no manager has adopted.
#pragma once

// Stops all periodic work, takes every protection, schedule and group away, logs out of the manager's
// storage, forgets the manager and rewrites the configuration file. No step that fails stops the others.
// While a reset runs, another returns at once. Runs tools, so it can take minutes; the caller holds no lock.
void _client_reset();
