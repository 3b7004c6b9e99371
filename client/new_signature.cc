#include "client/new_signature.h"

#include "base/clock.h"
#include "client/disk_identity.h"
#include "client/disks.h"

#include <algorithm>
#include <cstdlib>

uint32_t gen_signature()
{
    srand(static_cast<unsigned>(clock_wall()));
    return static_cast<uint32_t>(rand());
}

void set_disk_signature(const char *path)
{
    std::list<qel_disk_t> disks;
    qel_get_disks(&disks, 0);
    const auto taken = [&](const std::string &guid) {
        return std::any_of(disks.begin(), disks.end(),
                           [&](const qel_disk_t &disk) { return disk.path != path && disk.guid == guid; });
    };
    uint32_t signature = gen_signature();
    // The generator gives a new number only when the clock's second changes.
    while (taken(signature_to_guid(signature))) {
        clock_sleep_ms(10);
        signature = gen_signature();
    }
    write_disk_signature(path, signature);
}
