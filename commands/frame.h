// How commands begin.
#pragma once

struct request;

struct command_frame {
    const char *received;               // logged first; null: nothing is
    const char *null_request = nullptr; // logged for a request that is none; null: nothing is
    const char *not_adopted = nullptr;  // logged while no manager has adopted this client; null: nothing is
};

// The CDP agent's commands differ in the first line only.
constexpr command_frame agent_frame(const char *received)
{
    return {.received = received,
            .null_request = "Null request, operation abortd.",
            .not_adopted = "Error: client is not protected by a server."};
}

// Logs the receipt. Returns status_ok when the command may go on, else the status to answer with.
int enter_command(const command_frame &frame, const request *req);
