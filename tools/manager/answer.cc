#include "tools/manager/answer.h"

#include "protocol/stream.h"
#include "tools/common/report_view.h"
#include "tools/common/visible.h"
#include "tools/manager/commands.h"

#include <chrono>
#include <cstdio>
#include <ctime>
#include <thread>

namespace {
// What one visit gets.
struct plan {
    uint16_t status = status_ok;
    unsigned stall = 0;
    bool cut = false;
};

plan plan_for(const visit &guest)
{
    if (!guest.difficult)
        return {};
    return {.status = guest.treat.answer, .stall = guest.treat.stall, .cut = guest.treat.cut};
}

std::string describe(const plan &planned)
{
    const std::string end = planned.cut ? "cut" : std::to_string(planned.status);
    return planned.stall == 0 ? end : "stalled " + std::to_string(planned.stall) + " s, " + end;
}

void print_report(const request &req, const visit &guest, const plan &planned)
{
    const char *report = req.recv_xml ? req.recv_xml.get() : "";
    std::string text = guest.name + " command " + std::to_string(req.recv_head.cmd) + " origin " +
                       std::to_string(req.recv_head.origin) + ": " + report_line(report) + " -> " +
                       describe(planned);
    if (guest.treat.long_form) {
        text += "\n" + report_page(report);
        text.pop_back(); // its last newline
    }
    print_line(text);
}

// Prints what is new, and lets the list of hosts have its say in the answer.
void note_report(const request &req, const visit &guest, plan &planned)
{
    const char *report = req.recv_xml ? req.recv_xml.get() : "";
    const heartbeat_note note = note_heartbeat(*guest.hosts, guest.name, report, time(nullptr));
    print_news(note.news);
    if (planned.status == status_ok)
        planned.status = note.status;
}

void write_answer(request &req, const visit &guest, uint16_t status)
{
    req.send_head.version = protocol_version;
    req.send_head.ret = status;
    req.send_head.origin = req.recv_head.origin;
    req.send_head.cmd = req.recv_head.cmd;
    if (status != status_ok)
        return;
    manager_record manager = guest.treat.manager;
    if (manager.ips.empty())
        manager.ips = {local_address(guest.peer)};
    set_send_xml(req, manager_document(manager));
}

// Sends half of the frame: part of the body is missing, or part of the head if there is no body.
bool send_half(const unique_fd &peer, const request &req)
{
    std::string frame(reinterpret_cast<const char *>(&req.send_head), sizeof req.send_head);
    frame += req.send_xml.value_or("");
    const int half = static_cast<int>(frame.size() / 2);
    return qelc_writen(peer.get(), frame.data(), half) == half;
}
} // namespace

bool answer_report(const visit &guest)
{
    if (guest.difficult && guest.treat.refuse) {
        print_line(guest.name + " refused");
        return false;
    }
    request req;
    if (recv_from_remote(guest.peer.get(), &req) != 0)
        return false;
    plan planned = plan_for(guest);
    if (guest.hosts)
        note_report(req, guest, planned);
    else
        print_report(req, guest, planned);
    write_answer(req, guest, planned.status);
    std::this_thread::sleep_for(std::chrono::seconds(planned.stall));
    const bool sent = planned.cut ? send_half(guest.peer, req) : send_to_remote(guest.peer.get(), &req) == 0;
    if (!sent)
        complain(guest.name, "gone before its answer was sent");
    return true;
}

void print_line(const std::string &text)
{
    char now[16];
    const time_t seconds = time(nullptr);
    tm local{};
    strftime(now, sizeof now, "%H:%M:%S", localtime_r(&seconds, &local));
    printf("%s %s\n", now, text.c_str());
    fflush(stdout);
}

void print_news(const std::vector<std::string> &news)
{
    for (const std::string &line : news)
        print_line(visible(line));
}
