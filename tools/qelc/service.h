// The programs that run all the time on a host, and starting them.
#pragma once

#include <string>
#include <vector>

struct service {
    const char *unit;                   // of systemd
    std::vector<std::string> programs;  // names of the program, the first one that is there counts
    std::vector<std::string> arguments; // if systemd does not start it
    bool detaches = false;              // by itself
};

// The path of a program: beside this one, in the sbin beside that, or where tools are looked for; "" if it is
// not there.
std::string find_program(const std::vector<std::string> &names);

// How START would do it: "systemctl enable --now qelcd.service", or the path of the program; "" if neither is
// there.
std::string way_to_start(const service &one);

// Starts it, now and after each start of the host if systemd does it; else now. Returns why not, "" on
// success. What it does then is to be looked at.
std::string start(const service &one);
