#include "tools/qelc/ask.h"

#include "base/xml.h"

#include <cstdio>

int fail(int status, const std::string &what, const std::string &why)
{
    fprintf(stderr, "qelc: %s: %s\n", what.c_str(), why.c_str());
    return status;
}

int fail_unreadable()
{
    return fail(exit_no_answer, "the answer", "not in the expected form");
}

std::unique_ptr<request> ask(const peer_options &peer, uint32_t code, const optional_text &body, int &status)
{
    std::optional<endpoint> host;
    if (!peer.host.empty() && !(host = parse_endpoint(peer.host, default_client_port))) {
        status = fail(exit_usage, peer.host, "not ADDR[:PORT]");
        return nullptr;
    }
    std::string error;
    const unique_fd daemon =
        host ? connect_tcp(*host, peer.timeout, error) : connect_local(peer.socket_path, peer.timeout, error);
    std::unique_ptr<request> reply;
    if (daemon.is_open())
        reply = exchange(daemon, code, peer.origin, body, error);
    if (!reply)
        status = fail(exit_no_answer, host ? peer.host : peer.socket_path, error);
    return reply;
}

int print_answer(const request &reply, bool raw)
{
    const char *text = reply.recv_xml.get();
    const uint16_t status = reply.recv_head.ret;
    if (raw) {
        fwrite(text ? text : "", 1, reply.recv_head.data_len, stdout);
        if (status != status_ok)
            fprintf(stderr, "qelc: status %u: %s\n", status, meaning_of(status));
    } else {
        printf("status %u: %s\n", status, meaning_of(status));
        if (const xml_doc doc = text ? xml_parse_text(text) : nullptr)
            fputs(xml_to_text(doc, xml_layout::indented).c_str(), stdout);
        else if (text)
            printf("%s\n", text);
    }
    return status == status_ok ? exit_ok : exit_refused;
}
