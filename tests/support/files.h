// Files and folders of the private host.
#pragma once

#include <string>

std::string read_file(const std::string &path); // "" for none
void write_file(const std::string &path, const std::string &text);

// An empty folder laid over another one, which it hides while it lives; for trees such as /sys/class, in
// which nothing can be made.
class fake_folder {
public:
    explicit fake_folder(std::string path);
    ~fake_folder();
    fake_folder(const fake_folder &) = delete;
    fake_folder &operator=(const fake_folder &) = delete;

private:
    std::string path_;
};

// Gives this host a network interface beside the loopback one, with these IPv4 addresses.
void add_interface(const std::string &name, std::initializer_list<const char *> addresses);

// What COMMAND, a shell command line, prints. A command that fails is a failure of the test.
std::string output_of(const std::string &command);
