// The progress of running synchronisations, live.
#pragma once

#include "tools/qelc_ask.h"

// Shows how far the running synchronisations are until none runs any more, and asks for that again SECONDS
// after each answer. A terminal gets a bar for each that is redrawn in its place, anything else a line for
// each change. Returns what the program ends with.
int watch_mirrors(const peer_options &peer, unsigned seconds);
