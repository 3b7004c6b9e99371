// How every command begins.
#pragma once

struct request;

struct command_frame {
    const char *received;               // logged first; null: no log line
    const char *null_request = nullptr; // logged for a null request; null: no log line
    const char *not_adopted = nullptr;  // logged while no manager has adopted this client; null: no log line
};

// The CDP agent's commands differ only in the first line.
constexpr command_frame agent_frame(const char *received)
{
    return {.received = received,
            .null_request = "Null request, operation abortd.",
            .not_adopted = "Error: client is not protected by a server."};
}

// Logs that the command was received. Returns status_ok if it may go on, else the status to answer with.
int enter_command(const command_frame &frame, const request *req);
