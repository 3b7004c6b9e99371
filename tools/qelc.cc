// qelc: sends one command to a daemon and prints the answer.

#include "base/file.h"
#include "base/xml.h"
#include "protocol/commands.h"
#include "tools/bodies.h"
#include "tools/exchange.h"

#include <CLI/CLI.hpp>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>

namespace {
enum exit_status { exit_ok = 0, exit_refused = 1, exit_usage = 2, exit_no_answer = 3 };

struct options {
    std::string command;
    std::vector<std::string> body_words;
    std::string body_file;
    option_values body_options;
    std::string host;
    std::string socket_path = "/var/run/qelcd.sock";
    uint16_t origin = 0;
    unsigned timeout = 120;
    bool raw = false;
    bool list = false;
    bool print_body = false;
};

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

int fail(int status, const std::string &what, const std::string &why)
{
    fprintf(stderr, "qelc: %s: %s\n", what.c_str(), why.c_str());
    return status;
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

void print_answer(const request &reply, bool raw)
{
    const char *text = reply.recv_xml.get();
    if (raw) {
        fwrite(text ? text : "", 1, reply.recv_head.data_len, stdout);
        return;
    }
    printf("status %u: %s\n", reply.recv_head.ret, meaning_of(reply.recv_head.ret));
    if (!text)
        return;
    if (const xml_doc doc = xml_parse_text(text))
        fputs(xml_to_text(doc, xml_layout::indented).c_str(), stdout);
    else
        printf("%s\n", text);
}

int run(const options &wanted)
{
    const std::optional<uint32_t> code = find_code(wanted.command);
    if (!code)
        return fail(exit_usage, wanted.command, "no such command (qelc --list names them all)");
    optional_text body;
    if (!take_body(wanted, *code, body))
        return exit_usage;
    if (wanted.print_body) {
        fputs(body.value_or("").c_str(), stdout);
        return exit_ok;
    }

    std::optional<endpoint> host;
    if (!wanted.host.empty() && !(host = parse_endpoint(wanted.host, default_client_port)))
        return fail(exit_usage, wanted.host, "not ADDR[:PORT]");
    const std::string peer_name = host ? wanted.host : wanted.socket_path;
    std::string error;
    const connection peer = host ? connect_tcp(*host, wanted.timeout, error)
                                 : connect_local(wanted.socket_path, wanted.timeout, error);
    if (peer.fd < 0)
        return fail(exit_no_answer, peer_name, error);
    const std::unique_ptr<request> reply = exchange(peer, *code, wanted.origin, body, error);
    if (!reply)
        return fail(exit_no_answer, peer_name, error);
    print_answer(*reply, wanted.raw);
    if (wanted.raw && reply->recv_head.ret != status_ok)
        fprintf(stderr, "qelc: status %u: %s\n", reply->recv_head.ret, meaning_of(reply->recv_head.ret));
    return reply->recv_head.ret == status_ok ? exit_ok : exit_refused;
}

constexpr char body_group[] = "Body";

// The options of all commands' bodies; whether they fit the command is found out later.
void add_body_options(CLI::App &app, options &wanted)
{
    constexpr int any_number = CLI::detail::expected_max_vector_size;
    for (const std::string &name : body_option_names()) {
        const auto take = [&wanted, name](const CLI::results_t &values) {
            wanted.body_options[name] = values;
            return true;
        };
        app.add_option("--" + name, take)
            ->expected(1, any_number)
            ->allow_extra_args(false)
            ->group(body_group);
    }
    app.footer("Instead of a body, by these options:\n" + body_usage());
}

// The lines of body_usage say more about the options of bodies than a list of these could.
std::string help(const CLI::App &app)
{
    class formatter : public CLI::Formatter {
        std::string make_group(std::string group, bool positional,
                               std::vector<const CLI::Option *> options) const override
        {
            return group == body_group ? "" : CLI::Formatter::make_group(group, positional, options);
        }
    };
    return formatter().make_help(&app, app.get_name(), CLI::AppFormatMode::Normal);
}

void add_options(CLI::App &app, options &wanted)
{
    auto *command = app.add_option("command", wanted.command, "name or code of the command");
    auto *body =
        app.add_option("body", wanted.body_words, "body of the request, an XML document, sent as it is");
    app.add_option("-f,--file", wanted.body_file, "read the body from a file, - for standard input")
        ->excludes(body);
    app.add_option("--host", wanted.host, "send over TCP to ADDR[:PORT] instead of the local socket");
    app.add_option("--socket", wanted.socket_path, "path of the local socket")->capture_default_str();
    app.add_option("--origin", wanted.origin, "sender tag of the request")->capture_default_str();
    app.add_option("--timeout", wanted.timeout, "seconds to wait for an answer, 0 for ever")
        ->capture_default_str();
    app.add_flag("--raw", wanted.raw, "print the answer's body as it came, and nothing else");
    app.add_flag("--print-body", wanted.print_body, "print the body of the request, and send nothing");
    app.add_flag("--list", wanted.list, "list the commands and the statuses, and send nothing")
        ->excludes(command);
    add_body_options(app, wanted);
}
} // namespace

int main(int argc, char **argv)
{
    init_tool();
    options wanted;
    CLI::App app{"Sends one command to a qelcd daemon and prints the status and the answer.\n"
                 "Exit status: 0 for status 0, 1 for any other status, 2 for wrong usage, 3 for no answer."};
    add_options(app, wanted);
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp &) {
        fputs(help(app).c_str(), stdout);
        return exit_ok;
    } catch (const CLI::ParseError &error) {
        app.exit(error);
        return exit_usage;
    }
    if (wanted.list) {
        print_lists();
        return exit_ok;
    }
    if (wanted.command.empty()) {
        fputs(help(app).c_str(), stderr);
        return exit_usage;
    }
    return run(wanted);
}
