// Commands that name a group: what differs between the manager's and the agent's. Internal to this folder.
#pragma once

#include "client/client.h"
#include "commands/frame.h"

#include <memory>

struct request;

struct group_command {
    command_frame frame;
    std::unique_ptr<qel_group> (*parse)(const char *text, bool *is_cluster);
    const char *unreadable;
    const char *complete; // logged at the end; null: no log line
};

// The record of one of the agent's commands.
group_command agent_group_command(const char *received, const char *complete);

// The group of the request. Null after log lines; STATUS is then the status to answer with.
std::unique_ptr<qel_group> enter_group_command(const group_command &command, const request *req, int &status);

// Ends such a command after success: writes its log line and returns status_ok.
int complete(const group_command &command);
