// Frames of a stream, which ends or stays open without more data. A whole frame that is sent on is the same
// bytes.
#include "base/fd.h"
#include "protocol/request.h"
#include "tests/fuzz/fuzz.h"

#include <fcntl.h>
#include <unistd.h>

#include <climits>
#include <cstring>

namespace {
constexpr size_t pipe_size = 65536; // pipe(7)

// A head can announce up to 2 GiB. So much memory would only make the runs slow, so it announces less here.
void limit_bodies(std::string &stream)
{
    message_head head;
    for (size_t at = 0; at < stream.size() && stream.size() - at >= sizeof head;
         at += sizeof head + head.data_len) {
        memcpy(&head, stream.data() + at, sizeof head);
        if (head.data_len <= INT_MAX)
            head.data_len %= 2 * pipe_size;
        memcpy(stream.data() + at, &head, sizeof head);
    }
}

unique_fd stream_of(const std::string &bytes, bool stays_open, unique_fd *writer)
{
    int ends[2];
    require(pipe2(ends, O_CLOEXEC | O_NONBLOCK) == 0, "a pipe can be made");
    unique_fd reader(ends[0]);
    writer->reset(ends[1]);
    require(write(ends[1], bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()),
            "a pipe has room");
    if (!stays_open)
        writer->reset();
    return reader;
}

std::string sent_on(request &req)
{
    static const memory_file sent;
    sent.set("");
    lseek(sent.fd(), 0, SEEK_SET);
    req.send_head = req.recv_head;
    if (req.recv_xml)
        set_send_xml(req, std::string(req.recv_xml.get(), req.recv_head.data_len));
    require(send_to_remote(sent.fd(), &req) == 0, "a frame can be sent");
    return sent.content();
}
} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz_input input(data, size, 2);
    if (input.bytes.size() > pipe_size)
        return 0;
    const bool stays_open = input.choice == 1;
    limit_bodies(input.bytes);
    unique_fd writer;
    const unique_fd stream = stream_of(input.bytes, stays_open, &writer);
    std::string_view rest = input.bytes;
    for (;;) {
        request req;
        if (recv_from_remote(stream.get(), &req) != 0) {
            require(!req.recv_xml && req.recv_head.version == 0 && req.recv_head.data_len == 0,
                    "nothing is left of a frame that was refused");
            return 0;
        }
        require((req.recv_head.data_len == 0) == !req.recv_xml, "there is a body if there is a length");
        if (stays_open)
            continue;
        const std::string frame = sent_on(req);
        require(rest.starts_with(frame), "a frame is sent on as it came in");
        rest.remove_prefix(frame.size());
    }
}
