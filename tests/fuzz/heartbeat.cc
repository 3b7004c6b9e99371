// The manager's answer to a heartbeat: only our manager can move, and after it has moved it is where it says.
#include "jobs/heartbeat.h"

#include "base/xml.h"
#include "client/addresses.h"
#include "requests/membership.h"
#include "tests/fuzz/fuzz.h"

namespace {
constexpr char our_guid[] = "M";

qel_t &our_record()
{
    static qel_t record;
    g_client = &record;
    record.alias = "A";
    record.manager = std::make_unique<qel_manager>();
    record.manager->guid = our_guid;
    record.manager->target_iqn = "iqn.a:b";
    record.manager->ip_list = {{.addr = 0x0100007f}};
    return record;
}
} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool is_ready = (xml_init(), true);
    static_cast<void>(is_ready);
    const std::string text(reinterpret_cast<const char *>(data), size);
    const std::unique_ptr<qel_manager> newer = xml_to_manager(text.c_str());
    if (!newer)
        return 0;
    qel_t &record = our_record();
    if (is_manager_changed(newer.get()) != 1)
        return 0;
    require(newer->guid == our_guid, "another manager does not take over");
    require(qel_mngr_appoint(newer.get(), &record) == 0, "a manager can move");
    require(is_manager_changed(newer.get()) == 0, "a manager moves once");
    require(join_addresses(record.manager->ip_list) == join_addresses(newer->ip_list),
            "its addresses are kept");
    return 0;
}
