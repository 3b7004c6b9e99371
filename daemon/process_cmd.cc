#include "daemon/process_cmd.h"

#include "base/fd.h"
#include "base/log.h"
#include "base/shortage.h"
#include "daemon/command_table.h"
#include "jobs/heartbeat_job.h"
#include "protocol/commands.h"
#include "protocol/request.h"

#include <pthread.h>

#include <cstdlib>
#include <memory>
#include <mutex>

namespace {
// One command that needs too much memory must not end the others.
int run_handler(command_handler handler, request &req)
{
    int status = status_failure;
    if (end_at_shortage([&] { status = handler(&req); }))
        return status;
    req.send_xml.reset();
    req.send_head.data_len = 0;
    return status_failure;
}

// Only the command counts, not its status: a failed adoption leaves heartbeats on, and a refused release
// leaves them off.
void switch_heartbeat(uint32_t code)
{
    if (code != command::add_client && code != command::del_client)
        return;
    const std::lock_guard held(g_heartbeat_running_lock);
    g_heartbeat_running = code == command::add_client;
    if (g_heartbeat_running)
        log_info("Client added, turn on heartbeat!");
}

// Fills the reply to a request that was read. False if no reply is to be sent.
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
    unique_fd fd(*std::unique_ptr<int>(static_cast<int *>(fd_cell)));
    pthread_detach(pthread_self());
    std::unique_ptr<request> req = new_request();
    if (!req) {
        log_error("Failed to initialize request");
        fd.release(); // left open on purpose: the peer must not take its request for one that was read
        return nullptr;
    }
    if (recv_from_remote(fd.get(), req.get()) == 0 && answer(*req)) {
        req->send_head.version = protocol_version;
        req->send_head.origin = req->recv_head.origin;
        send_to_remote(fd.get(), req.get());
    }
    req.reset();
    fd.reset();
    return nullptr;
}
