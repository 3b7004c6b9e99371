// One exchange: a framed request and its framed reply, and the record that carries both through a handler.
//
// A record is used for one exchange by one thread; nothing here is shared or locked.
#pragma once

#include "base/secret.h"
#include "base/text.h"
#include "protocol/head.h"

#include <memory>
#include <string>

struct request {
    secret_text recv_xml;   // the received body, NUL-terminated; null when the frame had none
    optional_text send_xml; // the body to send; its length is send_head.data_len
    message_head recv_head{};
    message_head send_head{};
};

// A new record, or null when out of memory.
std::unique_ptr<request> new_request();

// Sets the body of the frame to send together with its length.
void set_send_xml(request &req, std::string text);

// Reads one frame into recv_head and recv_xml. Returns 0, or -1 after a log line; the head is then zero and
// the body null. If the record already holds a body, the process ends with status 1: the record was used
// before, and its content must not leak into another exchange.
int recv_from_remote(int fd, request *req);

// Writes send_head and, when its data_len is not 0, that many bytes of send_xml. Returns 0, or -1 after a log
// line.
int send_to_remote(int fd, const request *req);
