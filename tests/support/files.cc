#include "tests/support/files.h"

#include <gtest/gtest.h>
#include <sys/mount.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

std::string read_file(const std::string &path)
{
    std::ostringstream text;
    if (const std::ifstream stream(path); stream)
        text << stream.rdbuf();
    return text.str();
}

void write_file(const std::string &path, const std::string &text)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream stream(path, std::ios::binary);
    stream << text;
    stream.flush();
    if (!stream)
        ADD_FAILURE() << "cannot write " << path;
}

fake_folder::fake_folder(std::string path) : path_(std::move(path))
{
    if (mount("fake", path_.c_str(), "tmpfs", 0, nullptr) != 0)
        ADD_FAILURE() << "cannot hide " << path_ << ": " << strerror(errno);
}

fake_folder::~fake_folder()
{
    umount2(path_.c_str(), MNT_DETACH);
}

void add_interface(const std::string &name, std::initializer_list<const char *> addresses)
{
    output_of("ip link add " + name + " type veth peer name peer-" + name);
    for (const char *address : addresses)
        output_of("ip address add " + std::string(address) + "/24 dev " + name);
}

std::string output_of(const std::string &command)
{
    FILE *pipe = popen(command.c_str(), "re");
    std::string output;
    std::array<char, 4096> block;
    for (size_t count; pipe && (count = fread(block.data(), 1, block.size(), pipe)) > 0;)
        output.append(block.data(), count);
    if (!pipe || pclose(pipe) != 0)
        ADD_FAILURE() << "failed: " << command;
    return output;
}
