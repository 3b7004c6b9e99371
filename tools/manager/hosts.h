// The commands about the hosts that the service of this host knows.
#pragma once

#include <string>

// Prints the list, the worst first. A service that does not run is told on standard error; its list is what
// was known at its end then.
int list_hosts(const std::string &folder, bool as_json);

// Takes a host that is gone for good off the list. WORD is its name, an address or the ID.
int forget(const std::string &folder, const std::string &word);
