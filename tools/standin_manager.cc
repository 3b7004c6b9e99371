// standin-manager: plays the manager's part towards a daemon, for demonstrations and tests.

#include "base/xml.h"
#include "protocol/commands.h"
#include "protocol/stream.h"
#include "tools/exchange.h"
#include "tools/report_view.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace {
struct serve_options {
    std::string bind = "0.0.0.0";
    uint16_t port = default_server_port;
    std::string guid;
    std::vector<std::string> ips;
    std::string target_iqn;
    uint16_t answer = status_ok;
    unsigned count = 0;
    bool long_form = false;
};

struct scan_options {
    std::string host;
    unsigned timeout = 60;
};

int fail(const std::string &what, const std::string &why)
{
    fprintf(stderr, "standin-manager: %s: %s\n", what.c_str(), why.c_str());
    return EXIT_FAILURE;
}

// The manager's record, as every answer with status 0 carries it.
std::string manager_document(const serve_options &wanted)
{
    const xml_doc doc = xml_new_document("Tessaron");
    xmlNode *server = xml_add_element(xml_root(doc), "Server");
    xml_add_attribute(server, "ID", wanted.guid);
    xml_add_attribute(server, "IPs", CLI::detail::join(wanted.ips, " "));
    xml_add_attribute(server, "TargetIqn", wanted.target_iqn);
    return xml_to_text(doc);
}

connection open_listener(const serve_options &wanted)
{
    connection listener(reused_sock());
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(wanted.port);
    if (inet_pton(AF_INET, wanted.bind.c_str(), &address.sin_addr) != 1) {
        errno = EINVAL;
        return connection();
    }
    constexpr int backlog = 64;
    if (bind(listener.fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 ||
        listen(listener.fd, backlog) != 0)
        return connection();
    return listener;
}

void print_report(const request &req, const std::string &peer, bool long_form)
{
    char now[16];
    const time_t seconds = time(nullptr);
    tm local{};
    strftime(now, sizeof now, "%H:%M:%S", localtime_r(&seconds, &local));
    const char *report = req.recv_xml ? req.recv_xml.get() : "";
    printf("%s %s command %u origin %u: %s\n", now, peer.c_str(), req.recv_head.cmd, req.recv_head.origin,
           report_line(report).c_str());
    if (long_form)
        fputs(report_page(report).c_str(), stdout);
    fflush(stdout);
}

// Takes one report and answers it. False when the peer sent none.
bool serve_one(const connection &peer, const std::string &name, const serve_options &wanted)
{
    request req;
    if (recv_from_remote(peer.fd, &req) != 0)
        return false;
    print_report(req, name, wanted.long_form);
    req.send_head.version = protocol_version;
    req.send_head.ret = wanted.answer;
    req.send_head.origin = req.recv_head.origin;
    req.send_head.cmd = req.recv_head.cmd;
    if (wanted.answer == status_ok)
        set_send_xml(req, manager_document(wanted));
    send_to_remote(peer.fd, &req);
    return true;
}

int serve(const serve_options &wanted)
{
    const connection listener = open_listener(wanted);
    if (listener.fd < 0)
        return fail(wanted.bind + ":" + std::to_string(wanted.port), strerror(errno));
    printf("listening on %s:%u\n", wanted.bind.c_str(), wanted.port);
    fflush(stdout);
    unsigned served = 0;
    while (wanted.count == 0 || served < wanted.count) {
        sockaddr_in address{};
        socklen_t length = sizeof address;
        const connection peer(
            accept4(listener.fd, reinterpret_cast<sockaddr *>(&address), &length, SOCK_CLOEXEC));
        if (peer.fd < 0)
            return fail("accept", strerror(errno));
        char name[INET_ADDRSTRLEN] = "";
        inet_ntop(AF_INET, &address.sin_addr, name, sizeof name);
        served += serve_one(peer, name, wanted);
    }
    return EXIT_SUCCESS;
}

int scan(const scan_options &wanted)
{
    const std::optional<endpoint> host = parse_endpoint(wanted.host, default_client_port);
    if (!host)
        return fail(wanted.host, "not ADDR[:PORT]");
    std::string error;
    const connection peer = connect_tcp(*host, wanted.timeout, error);
    if (peer.fd < 0)
        return fail(wanted.host, error);
    constexpr uint32_t scan_code = 1;
    const std::unique_ptr<request> reply = exchange(peer, scan_code, 0, std::nullopt, error);
    if (!reply)
        return fail(wanted.host, error);
    if (reply->recv_head.ret != status_ok)
        return fail(wanted.host, meaning_of(reply->recv_head.ret));
    fputs(report_page(reply->recv_xml ? reply->recv_xml.get() : "").c_str(), stdout);
    return EXIT_SUCCESS;
}

void add_serve_options(CLI::App &app, serve_options &wanted)
{
    app.add_option("--bind", wanted.bind, "local IPv4 address to listen on")->capture_default_str();
    app.add_option("--port", wanted.port, "port to listen on")->capture_default_str();
    app.add_option("--guid", wanted.guid, "the manager's GUID in its record");
    app.add_option("--ip", wanted.ips, "an address of the manager in its record; may be given several times");
    app.add_option("--target-iqn", wanted.target_iqn, "the iSCSI target in its record");
    app.add_option("--answer", wanted.answer, "answer every report with this status")->capture_default_str();
    app.add_option("--count", wanted.count, "end after so many reports, 0 for never")->capture_default_str();
    app.add_flag("--long", wanted.long_form, "print each report at length, too");
}
} // namespace

int main(int argc, char **argv)
{
    init_tool();
    CLI::App app{
        "Plays the manager's part towards a qelcd daemon: takes its heartbeats, prints a line for each, and\n"
        "answers with the manager's record. A subcommand sends a command instead."};
    app.require_subcommand(0, 1);
    serve_options serve_wanted;
    add_serve_options(app, serve_wanted);
    scan_options scan_wanted;
    CLI::App *scan_command = app.add_subcommand("scan", "ask a host that no manager has adopted what it is");
    scan_command->add_option("host", scan_wanted.host, "ADDR[:PORT] of the daemon")->required();
    scan_command->add_option("--timeout", scan_wanted.timeout, "seconds to wait for the answer")
        ->capture_default_str();
    CLI11_PARSE(app, argc, argv);
    return scan_command->parsed() ? scan(scan_wanted) : serve(serve_wanted);
}
