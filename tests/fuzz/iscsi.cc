// The initiator's files: sessions, initiator names, and node records, of which only those of one target are
// removed. The first line names a target, the second a portal, and the rest is what the kernel or the
// initiator has written.
#include "client/channels.h"
#include "iscsi/channel.h"
#include "iscsi/node_record.h"
#include "tests/fuzz/fuzz.h"

#include <sys/mount.h>
#include <unistd.h>

#include <filesystem>

namespace fs = std::filesystem;

namespace {
const std::string session = "/sys/class/iscsi_session/session1/";
const fs::path nodes = node_dir, kept = nodes / "kept" / "portal", outside = "/var/lib/iscsi/outside";

bool make_host()
{
    require_private_host();
    require(mount("fuzz", "/sys/class", "tmpfs", 0, nullptr) == 0, "a folder can be laid over the kernel's");
    for (const fs::path &folder :
         {fs::path(session), kept, outside, fs::path("/sys/class/fc_host/host1"), fs::path("/etc/iscsi")})
        fs::create_directories(folder);
    return true;
}

void read_sessions(const std::string &target, const std::string &content)
{
    put_file(session + "targetname", content);
    const qel_iscsi_node node{.iqn = target};
    const bool is_line = !target.empty() && target.size() < 500;
    const bool is_same = is_line && content == target + "\n";
    const bool exists = _is_iscsi_ssn_exist(target.c_str()) != 0;
    require(exists || !is_same, "a session to the target is found");
    require(!exists || content.starts_with(target), "a session to another target is not found");
    require(qel_iscsi_channel_exist(&node, nullptr) != 0 || !is_same, "a channel to the target is found");
}

void read_initiators(const std::string &content)
{
    put_file("/etc/iscsi/initiatorname.iscsi", content);
    put_file("/sys/class/fc_host/host1/port_name", content);
    std::list<std::string> names;
    require(qel_get_inis(&names) == 0, "initiators are listed");
    for (const std::string &name : names)
        require(!name.empty() && name.size() < 512 && name.find('\n') == std::string::npos,
                "a name is one line");
}

void remove_records(const std::string &target, const std::string &portal)
{
    const bool is_own = !target.empty() && target.find('/') == std::string::npos && target.size() < 256 &&
                        target != "." && target != ".." && target != "kept";
    const fs::path folder = nodes / target;
    if (is_own)
        fs::create_directories(folder / "10.0.0.5,3260,1");
    remove_iscsi_node_record(target.c_str(), portal.c_str());
    require(!is_own || fs::exists(folder), "the folder of a target stays while it has portals");
    if (target != "kept")
        remove_iscsi_node_record(target.c_str(), nullptr);
    require(!is_own || !fs::exists(folder), "the records of a target are removed");
    require(fs::exists(outside) && (target == "kept" || fs::exists(kept)), "nothing else is removed");
    fs::create_directories(kept);
}
} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool is_ready = make_host();
    static_cast<void>(is_ready);
    std::string content(reinterpret_cast<const char *>(data), size);
    std::string lines[2];
    for (std::string &line : lines) {
        const size_t end = std::min(content.find('\n'), content.size());
        line = content.substr(0, end).c_str(); // up to a NUL, as the readers see it
        content.erase(0, std::min(end + 1, content.size()));
    }
    read_sessions(lines[0], content);
    read_initiators(content);
    remove_records(lines[0], lines[1]);
    return 0;
}
