// Kills the working process again and again while its configuration changes, and looks at the file each time:
//
//   bench-crashes KILLS BYTES          inside a private host, with qelcd on PATH
//
// One client renames the host without end. Half of the kills are SIGKILL, the other half a command without a
// handler, which aborts the process. After each, before anybody can change the file again, it must be whole
// and hold the last name that was answered, or the one that was sent after it.

#include "base/xml.h"
#include "bench/private_daemon.h"
#include "protocol/commands.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <random>
#include <string>
#include <thread>

namespace {
struct tally {
    int kills = 0;
    int torn = 0; // the file was not a whole document
    int lost = 0; // an answered change was not in it
};

std::mutex quiet; // held while a change is under way, and while the file is looked at
std::atomic<int> answered{0};
std::atomic<bool> is_over{false};

// The name carries its number, and its length jumps, so that the file grows and shrinks.
std::string name_of_change(int number)
{
    return "n" + std::to_string(number) + "-" + std::string(static_cast<size_t>(number * 37 % 900), 'x');
}

bool rename(int number, const std::string &body)
{
    const std::lock_guard changing(quiet);
    if (ask(command::rename_client, body).status != 0)
        return false;
    answered = number;
    return true;
}

void rename_without_end()
{
    for (int number = 1; !is_over; ++number) {
        const std::string body = "<Tessaron><Client Alias=\"" + name_of_change(number) + "\"/></Tessaron>";
        while (!is_over && !rename(number, body))
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}

void write_config(size_t bytes)
{
    std::ofstream file(config_file);
    file << "<Tessaron><ClientPort>9410</ClientPort><ServerPort>9411</ServerPort>"
         << "<Manager><ManagerGUID>crashes</ManagerGUID><ManagerIPAddr>127.0.0.1</ManagerIPAddr></Manager>"
         << "<DiskGroupList>";
    for (int group = 0; static_cast<size_t>(file.tellp()) < bytes; ++group)
        file << "<DiskGroup GroupName=\"g" << group
             << "\" CDPConStartTime=\"0\" CDPStartTime=\"0\" CDPTimeout=\"0\"/>";
    file << "</DiskGroupList></Tessaron>";
}

// A change that was under way when the process was killed may be in the file or not.
void look(tally &seen)
{
    const std::lock_guard nobody_changes_it(quiet);
    const int last = answered;
    const xml_doc doc = xml_parse_file(config_file);
    const optional_text name = doc ? xml_content(find_child(xml_root(doc), "ClientAlias")) : std::nullopt;
    if (!doc)
        ++seen.torn;
    else if (last > 0 && name != name_of_change(last) && name != name_of_change(last + 1))
        ++seen.lost;
}

bool wait_for_changes(int more)
{
    const int enough = answered + more;
    for (int tries = 0; tries < 30000 && answered < enough; ++tries)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return answered >= enough;
}

void kill_worker(int pid, bool by_signal)
{
    constexpr uint32_t without_handler = 9;
    if (by_signal)
        kill(pid, SIGKILL);
    else
        ask(without_handler, "");
}

bool has_ended(const char *sign)
{
    const bool is_there = kill(supervisor(), 0) == 0;
    fprintf(stderr, "bench-crashes: %s; the supervisor is %s\n", sign, is_there ? "there" : "gone");
    return false;
}

bool play(int kills, tally &seen)
{
    std::mt19937 random(std::random_device{}());
    std::uniform_int_distribution<int> microseconds(0, 20000);
    while (seen.kills < kills) {
        if (!wait_for_changes(2))
            return has_ended("no change was answered for half a minute");
        const int pid = worker();
        if (pid == 0)
            return has_ended("there is no working process");
        std::this_thread::sleep_for(std::chrono::microseconds(microseconds(random)));
        kill_worker(pid, seen.kills % 2 == 0);
        ++seen.kills;
        if (!wait_for_new_worker(pid))
            return has_ended("no new working process");
        look(seen);
    }
    return true;
}
} // namespace

int main(int argc, char **argv)
{
    if (argc != 3)
        return 2;
    xml_init();
    write_config(strtoul(argv[2], nullptr, 10));
    if (system("qelcd") != 0)
        return 2;
    tally seen;
    std::thread renamer(rename_without_end);
    const bool is_alive = play(atoi(argv[1]), seen);
    is_over = true;
    renamer.join();
    kill(supervisor(), SIGTERM);
    printf("%s %d %d %d %d %d\n", argv[2], seen.kills, answered.load(), seen.torn, seen.lost,
           is_alive ? 0 : 1);
    return is_alive && seen.torn == 0 && seen.lost == 0 ? 0 : 1;
}
