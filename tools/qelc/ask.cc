#include "tools/qelc/ask.h"

#include "base/xml.h"
#include "tools/common/visible.h"

#include <unistd.h>

#include <cstdio>

const char how_to_adopt[] =
    "qelc init makes this host its own manager; with a storage system, let its manager adopt it";

namespace {
// As it is for a program; a terminal must not obey it.
void print_document(std::string_view text)
{
    const bool is_terminal = isatty(STDOUT_FILENO) != 0;
    const std::string shown = is_terminal ? visible(text, line_ends::kept) : std::string(text);
    fwrite(shown.data(), 1, shown.size(), stdout);
}
} // namespace

int fail(int status, const std::string &what, const std::string &why)
{
    fprintf(stderr, "qelc: %s: %s\n", visible(what).c_str(), visible(why).c_str());
    return status;
}

std::unique_ptr<request> try_ask(const peer_options &peer, uint32_t code, const optional_text &body,
                                 exit_status &status, std::string &error, const waiting_call &waiting)
{
    std::optional<endpoint> host;
    if (!peer.host.empty() && !(host = parse_endpoint(peer.host, default_client_port))) {
        error = peer.host + ": not ADDR[:PORT]";
        status = exit_usage;
        return nullptr;
    }
    const unique_fd daemon =
        host ? connect_tcp(*host, peer.timeout, error) : connect_local(peer.socket_path, peer.timeout, error);
    std::unique_ptr<request> reply;
    if (daemon.is_open())
        reply = exchange(daemon, code, peer.origin, body, error, waiting);
    if (!reply) {
        error = (host ? peer.host : peer.socket_path) + ": " + error;
        status = exit_no_answer;
    }
    return reply;
}

std::unique_ptr<request> ask(const peer_options &peer, uint32_t code, const optional_text &body, int &status)
{
    exit_status end = exit_ok;
    std::string error;
    std::unique_ptr<request> reply = try_ask(peer, code, body, end, error);
    if (!reply) {
        fprintf(stderr, "qelc: %s\n", visible(error).c_str());
        status = end;
    }
    return reply;
}

int print_answer(const request &reply, bool raw)
{
    const char *text = reply.recv_xml.get();
    const uint16_t status = reply.recv_head.ret;
    if (raw) {
        if (text)
            print_document({text, reply.recv_head.data_len});
        if (status != status_ok)
            fprintf(stderr, "qelc: status %u: %s\n", status, meaning_of(status));
    } else {
        printf("status %u: %s\n", status, meaning_of(status));
        if (const xml_doc doc = text ? xml_parse_text(text) : nullptr)
            print_document(xml_to_text(doc, xml_layout::indented));
        else if (text)
            print_document(text + std::string("\n"));
    }
    if (status == status_not_adopted)
        fprintf(stderr, "hint: %s\n", how_to_adopt);
    return status == status_ok ? exit_ok : status == status_not_adopted ? exit_not_adopted : exit_refused;
}
