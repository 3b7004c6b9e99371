#include "daemon/process_cmd.h"

#include "base/log.h"
#include "daemon/command_table.h"
#include "jobs/heartbeat.h"
#include "protocol/commands.h"
#include "protocol/request.h"

#include <pthread.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <mutex>
#include <new>

namespace {
int run_handler(command_handler handler, request &req)
{
    try {
        return handler(&req);
    } catch (const std::bad_alloc &) {
        // One command that asks for too much must not take the others with it.
        log_error("Failed to allocate memory");
        req.send_xml.reset();
        req.send_head.data_len = 0;
        return status_failure;
    }
}

// The commands alone decide, not what became of them: a failed adoption leaves heartbeats on, and a refused
// release leaves them off.
void switch_heartbeat(uint32_t code)
{
    if (code != add_client_code && code != del_client_code)
        return;
    const std::lock_guard held(g_heartbeat_running_lock);
    g_heartbeat_running = code == add_client_code;
    if (g_heartbeat_running)
        log_info("Client added, turn on heartbeat!");
}

// Fills the reply of a request that was read. False when there is to be no reply.
bool answer(request &req)
{
    const uint32_t code = req.recv_head.cmd;
    if (req.recv_head.version != protocol_version) {
        log_error("Received command from incompatible Tessaron server.");
        req.send_head.ret = status_failure;
        req.send_head.data_len = 0;
        return true;
    }
    log_info("Received command code: %u.", code);
    req.send_head.ret = status_failure;
    req.send_head.cmd = code;
    log_debug("CMD:%d", static_cast<int>(code));
    if (code == 0) {
        log_error("Invalid cmd: %d", static_cast<int>(code));
        return false;
    }
    const command_handler handler = find_handler(code);
    if (!handler)
        std::abort();
    req.send_head.ret = static_cast<uint16_t>(run_handler(handler, req));
    switch_heartbeat(code);
    return true;
}
} // namespace

void *process_cmd(void *fd_cell)
{
    const int fd = *std::unique_ptr<int>(static_cast<int *>(fd_cell));
    pthread_detach(pthread_self());
    std::unique_ptr<request> req = new_request();
    if (!req) {
        log_error("Failed to initialize request");
        return nullptr; // with the connection left open: the peer is not told of a request that was not read
    }
    if (recv_from_remote(fd, req.get()) == 0 && answer(*req)) {
        req->send_head.version = protocol_version;
        req->send_head.origin = req->recv_head.origin;
        send_to_remote(fd, req.get());
    }
    req.reset();
    close(fd);
    return nullptr;
}
