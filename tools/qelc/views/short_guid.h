// GUIDs on a terminal.
#pragma once

#include <string>
#include <vector>

// The beginning of GUID, of at least eight characters, that no other of ALL has, in capital or small letters.
std::string short_guid(const std::string &guid, const std::vector<std::string> &all);
