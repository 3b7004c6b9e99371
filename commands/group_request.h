// Commands that name a group, as the manager's and the agent's differ. Internal to this folder.
#pragma once

#include "client/client.h"
#include "commands/frame.h"

#include <memory>

struct request;

struct group_command {
    command_frame frame;
    std::unique_ptr<qel_group> (*parse)(const char *text, bool *is_cluster);
    const char *unreadable;
    const char *complete; // logged at the end; null: nothing is
};

// The agent's, which have most in common.
group_command agent_group_command(const char *received, const char *complete);

// The group of the request. Null after log lines, with STATUS then set to what is to be answered.
std::unique_ptr<qel_group> enter_group_command(const group_command &command, const request *req, int &status);

// How every such command ends well.
int complete(const group_command &command);
