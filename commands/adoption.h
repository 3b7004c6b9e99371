// Whether a manager has adopted this client.
#pragma once

#include "client/client.h"

#include <mutex>

// Takes only the record's content_lock, so it does not wait for other commands.
inline bool is_adopted()
{
    const std::lock_guard reading(g_client->content_lock);
    return qel_is_protected(g_client) != 0;
}
