// The initiator's node records: one folder per target, with one entry per portal.
#pragma once

constexpr char node_dir[] = "/var/lib/iscsi/nodes";

// Removes a file, or a folder with everything in it; links are removed, not followed. Returns 0, or -1 if
// something cannot be removed; a folder that cannot be opened is logged.
int remove_file(const char *path);

// Removes the records of the target IQN: all of them if ADDRESS is null, else those whose name does not begin
// with ADDRESS. An IQN that is not a file name is refused, so that nothing outside the folder is removed.
// Returns 0, or -1.
int remove_iscsi_node_record(const char *iqn, const char *address);

// Removes the daemon's iface records and all node records of the target. Does nothing for a null IQN. Returns
// 0, or -1 after a log line.
int qel_remove_channel_file(const char *iqn);
