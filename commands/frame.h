// How commands begin.
#pragma once

struct request;

struct command_frame {
    const char *received;               // logged first; null: nothing is
    const char *null_request = nullptr; // logged for a request that is none; null: nothing is
    const char *not_adopted = nullptr;  // logged while no manager has adopted this client; null: nothing is
};

// Logs the receipt. Returns status_ok when the command may go on, else the status to answer with.
int enter_command(const command_frame &frame, const request *req);
