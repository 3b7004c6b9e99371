// Hosts that report to a manager: each sends a full report of ten disks, five of them with mirrors, every
// five seconds, and waits for the answer. Prints a row of a table.
//
//   bench-manager ADDRESS PORT HOSTS SECONDS spread|at-once

#include "base/xml.h"
#include "protocol/commands.h"
#include "tools/common/exchange.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <thread>
#include <vector>

namespace {
using clock_type = std::chrono::steady_clock;
using seconds = std::chrono::duration<double>;

constexpr auto interval = std::chrono::seconds(5);
constexpr int disks = 10;
constexpr unsigned patience = 30; // seconds

void add_disk(xmlNode *list, int number)
{
    xmlNode *disk = xml_add_element(list, "Disk");
    xml_add_attribute(disk, "Name", "sd" + std::to_string(number));
    xml_add_unsigned(disk, "Size", uint64_t{1} << 40);
    xml_add_attribute(disk, "GUID", std::to_string(10000000 + number) + "-0000-0000-0000-000000000000");
    xmlNode *partition = xml_add_element(disk, "Partition");
    xml_add_attribute(partition, "Name", "sd" + std::to_string(number) + "1");
    xml_add_attribute(partition, "Guid", "0d97b381-7f4d-084d-8c00-e935f82e425a");
    xml_add_attribute(partition, "FS", "ext4");
}

void add_mirror(xmlNode *list, int number)
{
    xmlNode *mirror = xml_add_element(list, "Backup");
    xml_add_number(mirror, "State", number % 3);
    xml_add_number(mirror, "Percent", 43);
    xml_add_attribute(mirror, "SrcName", "sd" + std::to_string(number));
    xml_add_attribute(mirror, "SrcGUID", std::to_string(10000000 + number) + "-0000-0000-0000-000000000000");
    xml_add_attribute(mirror, "DestGUID", std::to_string(20000000 + number) + "-0000-0000-0000-000000000000");
}

std::string report_of(int host)
{
    const xml_doc doc = xml_new_document("Tessaron");
    xmlNode *client = xml_add_element(xml_root(doc), "Client");
    xml_add_attribute(client, "HostName", "host-" + std::to_string(host));
    xml_add_attribute(client, "ID", "id-" + std::to_string(host));
    xml_add_attribute(client, "IPs", std::string("192.0.2.1 192.0.2.2"));
    xmlNode *disk_list = xml_add_element(client, "DiskList");
    xmlNode *mirrors = xml_add_element(client, "BackupList");
    for (int number = 0; number < disks; ++number) {
        add_disk(disk_list, number);
        if (number % 2 == 0)
            add_mirror(mirrors, number);
    }
    return xml_to_text(doc);
}

struct measurement {
    std::vector<double> waits; // seconds from the moment at which a heartbeat was due to its answer
    int failures = 0;
};

bool beat(const endpoint &manager, const std::string &report)
{
    constexpr uint16_t heartbeat_tag = 3;
    std::string error;
    const unique_fd peer = connect_tcp(manager, patience, error);
    const auto answer =
        peer.is_open() ? exchange(peer, heartbeat_command, heartbeat_tag, report, error) : nullptr;
    return answer && answer->recv_head.ret == status_ok && answer->recv_xml;
}

void report_until(clock_type::time_point due, clock_type::time_point end, const endpoint &manager, int host,
                  measurement &result)
{
    const std::string report = report_of(host);
    for (; due < end; due += interval) {
        std::this_thread::sleep_until(due);
        result.failures += !beat(manager, report);
        result.waits.push_back(seconds(clock_type::now() - due).count());
    }
}

void print_row(const char *way, const std::vector<measurement> &results)
{
    std::vector<double> waits;
    int failures = 0;
    for (const measurement &one : results) {
        waits.insert(waits.end(), one.waits.begin(), one.waits.end());
        failures += one.failures;
    }
    std::ranges::sort(waits);
    const auto late = std::ranges::count_if(waits, [](double wait) { return wait >= 1; });
    printf("| %s | %zu | %d | %td | %.1f | %.1f | %.1f |", way, waits.size(), failures, late,
           waits[waits.size() / 2] * 1000, waits[waits.size() * 99 / 100] * 1000, waits.back() * 1000);
}
} // namespace

int main(int argc, char **argv)
{
    if (argc != 6)
        return 2;
    init_tool();
    const endpoint manager{argv[1], static_cast<uint16_t>(atoi(argv[2]))};
    const int hosts = atoi(argv[3]);
    const bool is_spread = std::string_view(argv[5]) == "spread";
    const auto begin = clock_type::now() + std::chrono::seconds(1); // all threads are there by then
    const auto end = begin + std::chrono::seconds(atoi(argv[4]));
    std::vector<measurement> results(static_cast<size_t>(hosts));
    std::vector<std::thread> threads;
    for (int host = 0; host < hosts; ++host) {
        const auto first = begin + (is_spread ? interval * host / hosts : clock_type::duration::zero());
        threads.emplace_back(report_until, first, end, manager, host,
                             std::ref(results[static_cast<size_t>(host)]));
    }
    for (std::thread &thread : threads)
        thread.join();
    print_row(argv[5], results);
}
