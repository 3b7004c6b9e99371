#include "protocol/request.h"

#include "base/log.h"
#include "protocol/stream.h"

#include <climits>
#include <cstdlib>
#include <new>
#include <utility>

namespace {
int receive_body(int fd, request &req)
{
    const uint32_t length = req.recv_head.data_len;
    if (length == 0)
        return 0;
    // The reader counts in int, so a longer body cannot be read. With its NUL the longest one has no bytes at
    // all in the 32 bits of the protocol: its memory is there, and reading fails.
    const bool has_no_bytes = length == UINT32_MAX;
    if (length <= INT_MAX)
        req.recv_xml.reset(static_cast<char *>(calloc(size_t{length} + 1, 1)));
    if (!req.recv_xml && !has_no_bytes) {
        log_error("Failed to allocate memory");
        return -1;
    }
    if (has_no_bytes || qelc_readn(fd, req.recv_xml.get(), static_cast<int>(length)) <= 0) {
        log_debug("Failed to recv xml_msg from fd(%d)", fd);
        return -1;
    }
    log_debug("Recv xml: %s", req.recv_xml.get());
    return 0;
}

int receive(int fd, request &req)
{
    if (qelc_readn(fd, &req.recv_head, sizeof req.recv_head) <= 0) {
        log_debug("Failed to recv head from fd(%d)", fd);
        return -1;
    }
    log_debug("Recv head: ret=%d, cmd=%d, data_len=%d", req.recv_head.ret,
              static_cast<int>(req.recv_head.cmd), static_cast<int>(req.recv_head.data_len));
    return receive_body(fd, req);
}
} // namespace

std::unique_ptr<request> new_request()
{
    return std::unique_ptr<request>(new (std::nothrow) request);
}

void set_send_xml(request &req, std::string text)
{
    req.send_head.data_len = static_cast<uint32_t>(text.size());
    req.send_xml = std::move(text);
}

int recv_from_remote(int fd, request *req)
{
    if (!req)
        return -1;
    if (req->recv_xml) {
        log_error("Request unclean, exit daemon");
        std::quick_exit(1);
    }
    if (receive(fd, *req) != 0) {
        req->recv_xml.reset();
        req->recv_head = {};
        return -1;
    }
    return 0;
}

int send_to_remote(int fd, const request *req)
{
    if (!req) {
        log_error("Invalid input");
        return -1;
    }
    if (qelc_writen(fd, &req->send_head, sizeof req->send_head) < 1) {
        log_error("Failed to send head to fd(%d)", fd);
        return -1;
    }
    log_debug("Send head: ret=%d, cmd=%d, data_len=%d", req->send_head.ret,
              static_cast<int>(req->send_head.cmd), static_cast<int>(req->send_head.data_len));
    if (req->send_head.data_len == 0)
        return 0;
    if (qelc_writen(fd, req->send_xml->c_str(), static_cast<int>(req->send_head.data_len)) < 1) {
        log_error("Failed to send xml_msg to fd(%d)", fd);
        return -1;
    }
    log_debug("Send xml: %s", req->send_xml->c_str());
    return 0;
}
