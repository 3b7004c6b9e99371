#include "tools/manager/commands.h"

#include "tools/common/exchange.h"
#include "tools/common/report_view.h"
#include "tools/common/service_socket.h"
#include "tools/common/visible.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace {
unique_fd reach(const host_options &wanted)
{
    const std::optional<endpoint> host = parse_endpoint(wanted.host, default_client_port);
    if (!host) {
        complain(wanted.host, "not ADDR[:PORT]");
        return unique_fd();
    }
    std::string error;
    unique_fd peer = connect_tcp(*host, wanted.timeout, error);
    if (!peer.is_open())
        complain(wanted.host, error);
    return peer;
}

// Sends one command over PEER. Returns the answer if it is a success, and null after a complaint.
std::unique_ptr<request> tell(const host_options &wanted, const unique_fd &peer, uint32_t code,
                              const optional_text &body = std::nullopt)
{
    if (!peer.is_open())
        return nullptr;
    std::string error;
    std::unique_ptr<request> reply = exchange(peer, code, 0, body, error);
    if (reply && reply->recv_head.ret != status_ok) {
        error = std::string(name_of(code)) + ": " + meaning_of(reply->recv_head.ret);
        reply.reset();
    }
    if (!reply)
        complain(wanted.host, error);
    return reply;
}

int print_page(const std::unique_ptr<request> &reply)
{
    if (!reply)
        return EXIT_FAILURE;
    fputs(report_page(reply->recv_xml ? reply->recv_xml.get() : "").c_str(), stdout);
    return EXIT_SUCCESS;
}

struct host_identity {
    std::string guid; // "" for none
    bool is_protected = false;
    std::string address; // of the host, as it was reached
};

std::string peer_address(const unique_fd &peer)
{
    sockaddr_in address{};
    socklen_t length = sizeof address;
    char text[INET_ADDRSTRLEN] = "";
    if (getpeername(peer.get(), reinterpret_cast<sockaddr *>(&address), &length) == 0)
        inet_ntop(AF_INET, &address.sin_addr, text, sizeof text);
    return text;
}

// Who the host is, by its own report; none after a complaint.
std::optional<host_identity> identify(const host_options &wanted)
{
    const unique_fd peer = reach(wanted);
    const std::string address = peer_address(peer);
    const auto reply = tell(wanted, peer, command::get_client_info);
    if (!reply)
        return std::nullopt;
    const xml_doc doc = xml_parse_text(reply->recv_xml ? reply->recv_xml.get() : "");
    const xmlNode *client = report_client(doc);
    if (!client) {
        complain(wanted.host, no_report);
        return std::nullopt;
    }
    const bool is_protected = find_child(find_child(client, "BackupList"), "Backup") != nullptr;
    return host_identity{report_value(client, "ID"), is_protected, address};
}

bool is_free(const host_options &wanted)
{
    std::string error;
    const auto reply = exchange(reach(wanted), command::scan_client, 0, std::nullopt, error);
    return reply && reply->recv_head.ret == status_ok;
}

// A heartbeat may be more than a minute away if the last ones did not get through.
bool becomes_free(const host_options &wanted)
{
    constexpr auto longest_gap = std::chrono::seconds(75);
    const auto end = std::chrono::steady_clock::now() + longest_gap;
    while (!is_free(wanted)) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
    }
    return true;
}

// Through the service: the host obeys the answer to its heartbeat, and asks for no ID there.
int release_by_answer(const host_options &wanted, const host_identity &host, const std::string &folder)
{
    if (host.is_protected)
        return complain(wanted.host, meaning_of(status_still_protected));
    std::string wrong;
    if (const int failure = ask_service(folder, "release " + host.address, wrong))
        return complain(wanted.host,
                        "it has no ID, so that only the service can release it; that does not answer: " +
                            std::string(strerror(failure)));
    if (!wrong.empty())
        return complain(wanted.host,
                        "it has no ID, and the service does not know " + host.address + ": " + wrong);
    if (!becomes_free(wanted))
        return complain(wanted.host, "it has no ID, and no heartbeat of it came that could be answered");
    printf("released %s\n", visible(wanted.host).c_str());
    return EXIT_SUCCESS;
}
} // namespace

int complain(const std::string &what, const std::string &why)
{
    fprintf(stderr, "%s: %s: %s\n", program_invocation_short_name, visible(what).c_str(),
            visible(why).c_str());
    return EXIT_FAILURE;
}

int scan(const host_options &wanted)
{
    return print_page(tell(wanted, reach(wanted), command::scan_client));
}

int adopt(const host_options &wanted, manager_record manager)
{
    const unique_fd peer = reach(wanted);
    if (manager.ips.empty())
        manager.ips = {local_address(peer)};
    return print_page(tell(wanted, peer, command::add_client, manager_document(manager)));
}

int release(const host_options &wanted, const std::string &manager_guid, std::string client_guid,
            const std::string &folder)
{
    if (client_guid.empty()) {
        const std::optional<host_identity> host = identify(wanted);
        if (!host)
            return EXIT_FAILURE;
        if (host->guid.empty())
            return release_by_answer(wanted, *host, folder);
        client_guid = host->guid;
    }
    const std::string pair = pair_document(manager_guid, client_guid);
    if (!tell(wanted, reach(wanted), command::del_client, pair))
        return EXIT_FAILURE;
    std::string wrong; // a service that does not run, or does not know the host, has nothing to forget
    ask_service(folder, "forget " + client_guid, wrong);
    printf("released %s\n", visible(client_guid).c_str());
    return EXIT_SUCCESS;
}
