// Measures the full report of a host with many disks, built by client_to_xml and by libxml2 calls alone.
//
//   bench-report

#include "client/report.h"

#include "base/log.h"
#include "base/xml.h"
#include "client/client.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <vector>

namespace {
using steady = std::chrono::steady_clock;

void fill(qel_inventory_t &host, size_t disks)
{
    host.hostname = "bench";
    for (size_t i = 0; i < disks; ++i) {
        qel_disk_t &disk = host.disks.emplace_back();
        disk.name = "sd" + std::to_string(i);
        disk.path = "/dev/sd" + std::to_string(i);
        char guid[64];
        snprintf(guid, sizeof guid, "%08zx-0000-0000-0000-000000000000", i + 1);
        disk.guid = guid;
        disk.size = (i + 1) << 30;
        disk.vendor = "VENDOR MODEL";
        disk.state = 1;
        disk.type = 2;
        for (int32_t p = 0; p < 2; ++p) {
            qel_part_t &part = disk.parts.emplace_back();
            part.name = *disk.name + std::to_string(p + 1);
            part.guid = "0fc63daf-8483-4772-8e79-3d69d8477de4";
            part.fs = "ext4";
            part.size = disk.size / 2;
            part.used = part.size / 3;
        }
    }
}

// --- The same document, written against libxml2 directly ------------------------------------------------

const xmlChar *raw_text(const char *text)
{
    return reinterpret_cast<const xmlChar *>(text ? text : "");
}

void raw_attribute(xmlNode *node, const char *name, const optional_text &value)
{
    xmlNewProp(node, raw_text(name), raw_text(c_text(value)));
}

void raw_number(xmlNode *node, const char *name, uint64_t value)
{
    char digits[24];
    snprintf(digits, sizeof digits, "%" PRIu64, value);
    xmlNewProp(node, raw_text(name), raw_text(digits));
}

void bare_disk(xmlNode *list, const qel_disk_t &disk)
{
    xmlNode *node = xmlNewChild(list, nullptr, raw_text("Disk"), nullptr);
    raw_attribute(node, "Name", disk.name);
    raw_number(node, "Size", disk.size);
    raw_number(node, "Type", disk.type);
    raw_number(node, "Used", disk.used);
    raw_attribute(node, "Guid", disk.guid);
    raw_attribute(node, "FS", disk.fs);
    raw_number(node, "State", static_cast<uint64_t>(disk.state));
    raw_attribute(node, "Vendor", disk.vendor);
    xmlNewProp(node, raw_text("SysDisk"), raw_text("0"));
    for (const qel_part_t &part : disk.parts) {
        xmlNode *part_node = xmlNewChild(node, nullptr, raw_text("Partition"), nullptr);
        raw_attribute(part_node, "Name", part.name);
        raw_number(part_node, "Index", static_cast<uint64_t>(part.index));
        raw_number(part_node, "Size", part.size);
        raw_number(part_node, "Used", part.used);
        raw_attribute(part_node, "Guid", part.guid);
        raw_attribute(part_node, "FS", part.fs);
        raw_number(part_node, "State", static_cast<uint64_t>(part.state));
    }
}

std::string bare_report(const qel_inventory_t &host, const std::string &local_name)
{
    xmlDoc *doc = xmlNewDoc(raw_text("1.0"));
    xmlNode *root = xmlNewNode(nullptr, raw_text("Tessaron"));
    xmlDocSetRootElement(doc, root);
    xmlNewProp(root, raw_text("ClientType"), raw_text("0"));
    xmlNewProp(root, raw_text("NbClients"), raw_text("1"));
    xmlNewProp(root, raw_text("ClusterName"), raw_text(""));
    xmlNewProp(root, raw_text("ClusterID"), raw_text(""));
    xmlNode *client = xmlNewChild(root, nullptr, raw_text("Client"), nullptr);
    raw_attribute(client, "Name", host.hostname);
    xmlNewProp(client, raw_text("IPs"), raw_text(""));
    xmlNewProp(client, raw_text("HostName"), raw_text(local_name.c_str()));
    xmlNewProp(client, raw_text("SystemType"), raw_text("0"));
    xmlNewProp(client, raw_text("SysVersion"), raw_text(""));
    xmlNewProp(client, raw_text("ID"), raw_text(""));
    xmlNewProp(client, raw_text("DBOEM"), raw_text("00000000000000000000000000000000"));
    xmlNewProp(client, raw_text("Alias"), raw_text(""));
    xmlNode *list = xmlNewChild(client, nullptr, raw_text("DiskList"), nullptr);
    for (const qel_disk_t &disk : host.disks)
        bare_disk(list, disk);
    xmlNewChild(list, nullptr, raw_text("Volume"), nullptr);
    xmlNewChild(client, nullptr, raw_text("ChannelList"), nullptr);
    xmlNewChild(client, nullptr, raw_text("BackupList"), nullptr);
    xmlNode *databases = xmlNewChild(client, nullptr, raw_text("DataBaseList"), nullptr);
    xmlNewProp(databases, raw_text("ConfiguredBy"), raw_text("0"));

    xmlChar *raw = nullptr;
    int size = 0;
    xmlDocDumpFormatMemoryEnc(doc, &raw, &size, "utf-8", 0);
    std::string result(reinterpret_cast<const char *>(raw), static_cast<size_t>(size));
    xmlFree(raw);
    xmlFreeDoc(doc);
    return result;
}

// --- Measuring ---------------------------------------------------------------------------------------------

double seconds_of(const std::function<void()> &work, int repeats)
{
    const auto start = steady::now();
    for (int i = 0; i < repeats; ++i)
        work();
    return std::chrono::duration<double>(steady::now() - start).count() / repeats;
}

void compare(size_t disks, const std::string &local_name)
{
    qel_inventory_t host;
    fill(host, disks);
    if (client_to_xml(host, nullptr, 1) != bare_report(host, local_name)) {
        fprintf(stderr, "bench-report: the two documents differ\n");
        exit(1);
    }
    const int repeats = static_cast<int>(std::max<size_t>(1, 20000 / disks));
    std::vector<double> ours;
    std::vector<double> bare;
    for (int round = 0; round < 9; ++round) {
        ours.push_back(seconds_of([&] { client_to_xml(host, nullptr, 1); }, repeats));
        bare.push_back(seconds_of([&] { bare_report(host, local_name); }, repeats));
    }
    std::sort(ours.begin(), ours.end());
    std::sort(bare.begin(), bare.end());
    const double a = ours[ours.size() / 2];
    const double b = bare[bare.size() / 2];
    printf("| %zu | %.3f | %.3f | %.2f |\n", disks, a * 1e3, b * 1e3, a / b);
}
} // namespace

int main()
{
    debug_off();
    xml_init();
    std::string local_name(512, '\0');
    gethostname(local_name.data(), local_name.size());
    local_name.resize(local_name.find('\0'));
    puts("| disks | client_to_xml, ms | libxml2 alone, ms | ratio |");
    puts("|---:|---:|---:|---:|");
    for (const size_t disks : {10u, 1000u, 10000u})
        compare(disks, local_name);
}
