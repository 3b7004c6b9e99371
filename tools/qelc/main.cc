// qelc: sends one command to a daemon and prints the answer. The command is given as such, or as a verb.

#include "base/file.h"
#include "protocol/commands.h"
#include "tools/qelc/command_line.h"
#include "tools/qelc/host.h"
#include "tools/qelc/views/mirror_watch.h"
#include "tools/qelc/views/progress.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>

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

// Nobody has to look for the reason of a refusal: what is not adopted has no mirrors to show.
void show(const options &wanted, host &at, verb_options given)
{
    const verb &one = *wanted.given_verb;
    if (one.prepare)
        one.prepare(at, given);
    const std::unique_ptr<request> reply = at.ask(one.code, one.body(given));
    if (reply->recv_head.ret != status_ok)
        at.require_adopted();
    require_success(*reply);
    const char *text = reply->recv_xml ? reply->recv_xml.get() : "";
    const optional_text page = wanted.json ? std::nullopt : one.view(text);
    json_object results;
    if (wanted.json ? !one.json(text, results) : !page)
        throw verb_end{exit_no_answer, "the answer is not in the expected form", ""};
    if (page)
        fputs(page->c_str(), stdout);
    else
        print_envelope(one.name, exit_ok, "", "", results);
}

// The verb with what it was given, for an error message.
std::string full_text(const options &wanted)
{
    const verb_options &given = wanted.for_verb;
    std::vector<std::string> words = {wanted.given_verb->name};
    const bool is_of_group = words.front().starts_with("group ");
    const bool is_of_volume = words.front().starts_with("volume ");
    if (is_of_group || given.disks.empty())
        words.insert(words.end(), {given.group, given.disk, given.mirror, given.instance});
    if (is_of_volume)
        words.push_back(given.volume);
    words.insert(words.end(), given.snapshots.begin(), given.snapshots.end());
    words.insert(words.end(), given.disks.begin(), given.disks.end());
    std::string text;
    for (const std::string &word : words)
        text += (text.empty() || word.empty() ? "" : " ") + word;
    return text;
}

// What the error of a verb that changes nothing begins with; "" for another one.
std::string headline_of(const verb &one, const std::string &what, bool follows)
{
    if (follows)
        return what + " could not be followed";
    const bool changes = (one.act || one.act_here) && !one.only_shows;
    return changes ? "" : what + " could not be shown";
}

int run_verb(const options &wanted)
{
    const verb &one = *wanted.given_verb;
    verb_options given = wanted.for_verb;
    given.is_for_program = wanted.json;
    const bool follows = given.watch || given.wait;
    const std::string what = wanted.json ? one.name : full_text(wanted);
    host at(wanted.peer);
    try {
        if (one.run_here)
            return one.run_here(given, wanted.json);
        if (!follows && !one.act && !one.act_here) {
            show(wanted, at, given);
            return exit_ok;
        }
        const outcome end = follows        ? follow_mirrors(at, given)
                            : one.act_here ? one.act_here(given)
                                           : one.act(at, given);
        return print_outcome(what, end, wanted.json);
    } catch (const verb_end &end) {
        outcome failed{end.status, end.reason, end.hint};
        failed.headline = headline_of(one, what, follows);
        return print_outcome(what, failed, wanted.json);
    }
}

int run(const options &wanted)
{
    is_daemon_local = wanted.peer.host.empty();
    const verb *given = wanted.given_verb;
    if (given && given->look)
        return given->look(wanted.peer, wanted.for_verb, wanted.json);
    if (given && (given->asks_no_daemon() || (!wanted.print_body && !wanted.raw)))
        return run_verb(wanted);
    optional_text body;
    if (given)
        body = given->body(wanted.for_verb);
    else if (!take_command_body(wanted, body))
        return exit_usage;
    if (wanted.print_body) {
        fputs(body.value_or("").c_str(), stdout);
        return exit_ok;
    }
    int status = exit_ok;
    const std::unique_ptr<request> reply = ask(wanted.peer, wanted.code, body, status);
    return reply ? print_answer(*reply, wanted.raw) : status;
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
    errno = 0;
    if ((fflush(stdout) != 0 || ferror(stdout)) && errno != EPIPE)
        return fail(exit_refused, "standard output", errno ? strerror(errno) : "it could not be written");
    return status;
}
