// qelc: sends one command to a daemon and prints the answer. The command is given as such, or as a verb.

#include "base/file.h"
#include "protocol/commands.h"
#include "tools/qelc/command_line.h"
#include "tools/qelc/new_snapshots.h"
#include "tools/qelc/password.h"
#include "tools/qelc/views/mirror_watch.h"
#include "tools/qelc/views/progress.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {
void print_lists()
{
    puts("commands:");
    for (const command_name &known : command_names)
        printf("  %5u  %s\n", known.code, known.name);
    puts("statuses:");
    for (const status_meaning &known : status_meanings)
        printf("  %5u  %s\n", known.status, known.meaning);
}

// None, with errno set, if the file cannot be read.
optional_text read_body_file(const std::string &path)
{
    const file_stream file(fopen(path == "-" ? "/dev/stdin" : path.c_str(), "re"));
    if (!file)
        return std::nullopt;
    std::string text;
    char piece[4096];
    while (const size_t got = fread(piece, 1, sizeof piece, file.get()))
        text.append(piece, got);
    return ferror(file.get()) ? std::nullopt : optional_text(text);
}

// The body of a command. False after a complaint.
bool take_command_body(const options &wanted, optional_text &body)
{
    if (!wanted.body_words.empty()) {
        body = "";
        for (const std::string &word : wanted.body_words)
            *body += (body->empty() ? "" : " ") + word;
    } else if (!wanted.body_file.empty()) {
        body = read_body_file(wanted.body_file);
        if (!body)
            fail(exit_usage, wanted.body_file, strerror(errno));
        return body.has_value();
    } else if (wanted.with_options) {
        body = wanted.with_options->body(wanted.for_command);
    }
    return true;
}

// The body of a verb's command. The password that goes with a user is read here. False after a complaint.
bool take_verb_body(const options &wanted, optional_text &body)
{
    verb_options given = wanted.for_verb;
    std::string error;
    if (given.user && wanted.print_body)
        given.password = "********"; // does not tell the length
    else if (given.user)
        given.password = read_password(given.password_file, "password of " + *given.user + ": ", error);
    if (given.user && !given.password) {
        fail(exit_usage, wanted.given_verb->name, error);
        return false;
    }
    body = wanted.given_verb->body(given);
    return true;
}

// Returns what the program ends with.
int print_reply(const options &wanted, const request &reply)
{
    const verb *given = wanted.given_verb;
    if (given && wanted.json)
        return print_json_answer(reply, given->json);
    if (!given || !given->view || wanted.raw || reply.recv_head.ret != status_ok)
        return print_answer(reply, wanted.raw);
    const char *text = reply.recv_xml.get();
    const optional_text page = given->view(text ? text : "");
    if (!page)
        return fail_unreadable();
    fputs(page->c_str(), stdout);
    return exit_ok;
}

int run(const options &wanted)
{
    if (wanted.given_verb && wanted.given_verb->run_here)
        return wanted.given_verb->run_here(wanted.for_verb, wanted.json);
    optional_text body;
    if (!(wanted.given_verb ? take_verb_body(wanted, body) : take_command_body(wanted, body)))
        return exit_usage;
    if (wanted.print_body) {
        fputs(body.value_or("").c_str(), stdout);
        return exit_ok;
    }
    is_daemon_local = wanted.peer.host.empty();
    if (wanted.for_verb.watch)
        return watch_mirrors(wanted.peer, *wanted.for_verb.watch);

    const bool takes_snapshot = wanted.given_verb && wanted.given_verb->takes_snapshot && is_daemon_local;
    const new_snapshots taken(takes_snapshot);
    int status = exit_ok;
    const std::unique_ptr<request> reply = ask(wanted.peer, wanted.code, body, status);
    if (!reply)
        return status;
    status = print_reply(wanted, *reply);
    return status == exit_ok && takes_snapshot ? taken.tell(wanted.for_verb, wanted.json) : status;
}
} // namespace

int main(int argc, char **argv)
{
    init_tool();
    options wanted;
    if (const std::optional<int> end = parse_command_line(argc, argv, wanted))
        return *end;
    int status = exit_ok;
    if (wanted.list)
        print_lists();
    else
        status = run(wanted);
    if (status == exit_ok && fflush(stdout) != 0 && errno != EPIPE)
        return fail(exit_no_answer, "standard output", strerror(errno));
    return status;
}
