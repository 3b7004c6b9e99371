// What the service keeps in its folder: the hosts, over its own end, and a socket, by which commands of the
// same host ask it. Whoever may enter the folder may ask.
#pragma once

#include "base/fd.h"
#include "tools/common/service_socket.h"
#include "tools/manager/host_table.h"

#include <string>

// The hosts of the former run go into TABLE. A file that cannot be used is put beside, with a complaint.
void load_hosts(const std::string &folder, host_table &table);

// Replaces the file; a crash leaves the old one or the new one. Returns 0 or an error number.
int save_hosts(const std::string &folder, const std::string &document);

// Not open after a complaint. Only for the one service of the folder.
unique_fd open_socket(const std::string &folder);

// Answers the command that waits at the socket: "hosts", "hosts ID", "forget HOST" or "release HOST".
void answer_command(const unique_fd &socket, host_table &table);
