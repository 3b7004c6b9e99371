#include "tools/manager/commands.h"

#include "tools/common/exchange.h"
#include "tools/common/report_view.h"
#include "tools/common/visible.h"

#include <cstdio>
#include <cstdlib>

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

// The client's GUID from the host's report; "" after a complaint.
std::string ask_client_guid(const host_options &wanted)
{
    const auto reply = tell(wanted, reach(wanted), command::get_client_info);
    if (!reply)
        return "";
    const xml_doc doc = xml_parse_text(reply->recv_xml ? reply->recv_xml.get() : "");
    const xmlNode *client = report_client(doc);
    std::string guid = client ? report_value(client, "ID") : "";
    if (guid.empty())
        complain(wanted.host, "its report has no ID; give it with --client-guid");
    return guid;
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

int release(const host_options &wanted, const std::string &manager_guid, std::string client_guid)
{
    if (client_guid.empty())
        client_guid = ask_client_guid(wanted);
    if (client_guid.empty())
        return EXIT_FAILURE;
    const std::string pair = pair_document(manager_guid, client_guid);
    if (!tell(wanted, reach(wanted), command::del_client, pair))
        return EXIT_FAILURE;
    printf("released %s\n", visible(client_guid).c_str());
    return EXIT_SUCCESS;
}
