// Writes a snapshot back to a disk, or the members of a group's to theirs. Only what differs is written, and
// a disk keeps its own signature. A restore that is ended in the middle leaves a record; the same restore,
// asked for again, goes on: it looks at everything anew, as nobody knows what else has been written
// meanwhile.
#pragma once

#include "tools/snapshots/target.h"

#include <csignal>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

struct restore_wish {
    std::string name;           // of the snapshot
    std::string disk;           // as find_disk takes it; "": each member goes to its own disk
    bool takes_snapshot = true; // of what is on the disks now
};

struct restored_disk {
    std::string name; // of the kernel
    std::string guid;
    uint64_t size = 0;    // bytes that were compared
    uint64_t written = 0; // bytes, which differed
};

struct restore_end {
    bool is_done = false;
    std::string why;                  // not
    std::vector<restored_disk> disks; // which are as in the snapshot, also if not all of them are
};

// The person who asked for it, and the daemon.
struct restore_partner {
    line_taker say;

    // Shows what will be overwritten. False: it stays as it is, and the end says nothing of why.
    std::function<bool(const snapshot &of, const std::vector<restore_target> &targets)> confirm;

    // Takes a snapshot of a protected disk. False with the reason in WHY.
    std::function<bool(const restore_target &target, std::string *why)> take_snapshot;

    // Called often: everything before POSITION, of the target's size, is restored.
    std::function<void(const restore_target &target, uint64_t position)> progress;

    // Ends the restore when it is not 0, as a signal handler sets it.
    const volatile sig_atomic_t *stop = nullptr;
};

// Before CONFIRM nothing is changed; all disks are looked at and claimed before anything is written to the
// first.
restore_end restore_snapshot(const restore_wish &wish, const restore_partner &partner);
