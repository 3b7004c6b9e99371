// Whether a manager has adopted this client, as the handlers ask it.
#pragma once

#include "client/client.h"

#include <mutex>

// Waits for no command: the record's content_lock is enough.
inline bool is_adopted()
{
    const std::lock_guard reading(g_client->content_lock);
    return qel_is_protected(g_client) != 0;
}
