// qelc: sends one command to a daemon and prints the answer. The command is given as such, or as a verb.

#include "base/file.h"
#include "protocol/commands.h"
#include "tools/mirror_watch.h"
#include "tools/password.h"
#include "tools/qelc_help.h"
#include "tools/qelc_options.h"

#include <CLI/CLI.hpp>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>

namespace {
std::optional<uint32_t> find_code(const std::string &command)
{
    for (const command_name &known : command_names) {
        if (command == known.name)
            return known.code;
    }
    uint32_t code = 0;
    const char *last = command.data() + command.size();
    const auto [end, failure] = std::from_chars(command.data(), last, code);
    return failure == std::errc() && end == last ? std::optional(code) : std::nullopt;
}

void print_lists()
{
    puts("commands:");
    for (const command_name &known : command_names)
        printf("  %5u  %s\n", known.code, known.name);
    puts("statuses:");
    for (const status_meaning &known : status_meanings)
        printf("  %5u  %s\n", known.status, known.meaning);
}

// False when the file cannot be read.
bool read_body_file(const options &wanted, optional_text &body)
{
    const std::string name = wanted.body_file == "-" ? "/dev/stdin" : wanted.body_file;
    const file_stream file(fopen(name.c_str(), "re"));
    if (!file)
        return false;
    std::string text;
    char piece[4096];
    while (const size_t got = fread(piece, 1, sizeof piece, file.get()))
        text.append(piece, got);
    if (ferror(file.get()))
        return false;
    body = std::move(text);
    return true;
}

// The body as it was given, or built from options. False after a complaint.
bool take_body(const options &wanted, uint32_t code, optional_text &body)
{
    const bool by_hand = !wanted.body_words.empty() || !wanted.body_file.empty();
    if (by_hand && !wanted.body_options.empty()) {
        fail(exit_usage, wanted.command,
             "--" + wanted.body_options.begin()->first + " and a body exclude each other");
        return false;
    }
    if (!wanted.body_words.empty()) {
        body = CLI::detail::join(wanted.body_words, " ");
        return true;
    }
    if (!wanted.body_file.empty()) {
        if (read_body_file(wanted, body))
            return true;
        fail(exit_usage, wanted.body_file, strerror(errno));
        return false;
    }
    std::string error;
    if (build_body(code, wanted.body_options, body, error))
        return true;
    fail(exit_usage, wanted.command, error);
    return false;
}

struct question {
    uint32_t code = 0;
    optional_text body;
};

// What does not go with a verb; "" for nothing.
std::string complaint_about(const options &wanted, const verb &given)
{
    std::string misplaced = wanted.command;
    if (!wanted.body_options.empty())
        misplaced = "--" + wanted.body_options.begin()->first;
    else if (!wanted.body_file.empty())
        misplaced = "--file";
    if (!misplaced.empty())
        return misplaced + " does not belong to this verb";
    if ((wanted.raw || wanted.json) && wanted.given_to_verb.watch)
        return (wanted.raw ? "--raw" : "--json") + std::string(" and --watch exclude each other");
    return given.complaint(wanted.given_to_verb);
}

// The password that goes with a user, if there is one. False after a complaint.
bool take_password(const options &wanted, const char *verb_name, verb_options &given)
{
    if (!given.user)
        return true;
    std::string error;
    given.password = wanted.print_body
                         ? "********" // as long as any
                         : read_password(given.password_file, "password of " + *given.user + ": ", error);
    if (given.password)
        return true;
    fail(exit_usage, verb_name, error);
    return false;
}

// False after a complaint.
bool from_verb(const options &wanted, const verb &given, question &asked)
{
    const std::string complaint = complaint_about(wanted, given);
    if (!complaint.empty()) {
        fail(exit_usage, given.name, complaint);
        return false;
    }
    verb_options taken = wanted.given_to_verb;
    if (!take_password(wanted, given.name, taken))
        return false;
    asked = {given.code, given.body(taken)};
    return true;
}

// False after a complaint.
bool from_command(const options &wanted, question &asked)
{
    if (wanted.json) {
        fail(exit_usage, wanted.command, "--json goes with a verb");
        return false;
    }
    const std::optional<uint32_t> code = find_code(wanted.command);
    if (!code) {
        fail(exit_usage, wanted.command, "no such command (qelc --list names them all)");
        return false;
    }
    asked.code = *code;
    return take_body(wanted, *code, asked.body);
}

// GIVEN is the verb, if the question was one. Returns what the program ends with.
int print_reply(const options &wanted, const verb *given, const request &reply)
{
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

int run(const options &wanted, const verb *given)
{
    question asked;
    if (given ? !from_verb(wanted, *given, asked) : !from_command(wanted, asked))
        return exit_usage;
    if (wanted.print_body) {
        fputs(asked.body.value_or("").c_str(), stdout);
        return exit_ok;
    }
    if (wanted.given_to_verb.watch)
        return watch_mirrors(wanted.peer, *wanted.given_to_verb.watch);

    int status = exit_ok;
    const std::unique_ptr<request> reply = ask(wanted.peer, asked.code, asked.body, status);
    return reply ? print_reply(wanted, given, *reply) : status;
}

// Complaints of the parser about a verb look like those of the verb itself.
int complain(const CLI::App &app, const CLI::ParseError &error)
{
    const CLI::App &last = parsed_app(app);
    const std::string name = full_name_of(last);
    if (!name.empty())
        return fail(exit_usage, name,
                    verb_of(last) ? error.what() : "its verb is missing (--help names them all)");
    app.exit(error);
    return exit_usage;
}
} // namespace

int main(int argc, char **argv)
{
    init_tool();
    options wanted;
    CLI::App app{"Sends one command to a qelcd daemon and prints the status and the answer.\n"
                 "Exit status: 0 for status 0, 1 for any other status, 2 for wrong usage, 3 for no answer.",
                 "qelc"};
    app.formatter(help_format());
    add_options(app, wanted);
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp &) {
        fputs(app.help().c_str(), stdout);
        return exit_ok;
    } catch (const CLI::ParseError &error) {
        return complain(app, error);
    }
    if (wanted.list) {
        print_lists();
        return exit_ok;
    }
    const verb *given = verb_of(parsed_app(app));
    if (!given && wanted.command.empty()) {
        fputs(app.help().c_str(), stderr);
        return exit_usage;
    }
    if (given && app.count("--timeout") == 0)
        allow_for_slowness(wanted, *given);
    return run(wanted, given);
}
