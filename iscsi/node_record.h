// The initiator's node records: under one folder a folder per target, and in it an entry per portal.
#pragma once

constexpr char node_dir[] = "/var/lib/iscsi/nodes";

// Unlinks a file, or empties and removes a folder with all below it; links are removed, not followed. Returns
// 0; -1 when something could not be removed, logged for a folder that could not be opened.
int remove_file(const char *path);

// Removes the records of target IQN: all for a null ADDRESS, else those whose name does not begin with
// ADDRESS. An IQN that is no plain file name is refused: nothing outside the folder is ever touched. Returns
// 0, or -1.
int remove_iscsi_node_record(const char *iqn, const char *address);

// Removes the daemon's iface records and all node records of the target. Returns 0, also for a null IQN;
// -1 after a log line.
int qel_remove_channel_file(const char *iqn);
