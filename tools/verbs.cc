#include "tools/verbs.h"

#include "tools/exchange.h"
#include "tools/mirrors.h"
#include "tools/points_in_time.h"
#include "tools/protection_bodies.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>

namespace {
// --- Options -----------------------------------------------------------------------------------------

std::string check_point_in_time(const std::string &text)
{
    return parse_point_in_time(text) ? "" : text + " is not a time: " + point_in_time_forms;
}

std::string check_seconds(const std::string &text)
{
    uint32_t seconds = 0;
    const char *last = text.data() + text.size();
    const auto [end, failure] = std::from_chars(text.data(), last, seconds);
    const bool fits = failure == std::errc() && end == last && seconds > 0;
    return fits ? "" : text + " is not a number of seconds";
}

std::string check_not_empty(const std::string &text)
{
    return text.empty() ? "empty" : "";
}

void add_words(CLI::App &app, verb_options &given)
{
    app.add_option("words", given.words)->group(""); // the usage says what they are
}

CLI::Option *add_group(CLI::App &app, verb_options &given, const char *description)
{
    return app.add_option("--group", given.group, description)->type_name("NAME")->check(check_not_empty);
}

void add_times(CLI::App &app, verb_options &given)
{
    auto *start =
        app.add_option("--start", given.start, std::string("first snapshot: ") + point_in_time_forms)
            ->type_name("T")
            ->check(check_point_in_time);
    app.add_option("--every", given.every, "and one every so many seconds from then on")
        ->type_name("SECONDS")
        ->check(check_seconds)
        ->needs(start);
    start->needs(app.get_option("--every"));
}

void add_protect_options(CLI::App &app, verb_options &given)
{
    add_words(app, given);
    add_group(app, given, "take the others back when one fails, and give the schedule to this group");
    add_times(app, given);
}

void add_schedule_options(CLI::App &app, verb_options &given)
{
    auto *disk = app.add_option("--disk", given.disk, "a protected disk");
    disk->type_name("GUID")->check(check_not_empty);
    add_group(app, given, "a consistency group")->excludes(disk);
    add_times(app, given);
    app.add_flag("--off", given.off, "no more snapshots")
        ->excludes(app.get_option("--start"))
        ->excludes(app.get_option("--every"));
}

void add_mirrors_options(CLI::App &app, verb_options &given)
{
    app.add_option("--watch", given.watch,
                   "show the progress of the running synchronisations until none\n"
                   "runs any more, and look again after so many seconds (2)")
        ->option_text("[SECONDS]")
        ->expected(0, 1)
        ->default_str("2")
        ->check(check_seconds);
}

// --- What does not fit -------------------------------------------------------------------------------

bool is_pair(const std::string &word)
{
    const size_t sign = word.find('=');
    return sign != std::string::npos && sign > 0 && sign + 1 < word.size();
}

std::string protect_complaint(const verb_options &given)
{
    if (given.words.empty())
        return "SRC=MIRROR is missing";
    const auto wrong = std::ranges::find_if_not(given.words, is_pair);
    if (wrong != given.words.end())
        return *wrong + ": not SRC=MIRROR";
    // The daemon would give the schedule to the last disk alone.
    if (given.every > 0 && given.group.empty() && given.words.size() > 1)
        return "--every goes with a single disk, or with --group";
    return "";
}

std::string list_complaint(const verb_options &given)
{
    if (given.words.empty())
        return "SRC is missing";
    return std::ranges::count(given.words, "") > 0 ? "SRC is empty" : "";
}

std::string schedule_complaint(const verb_options &given)
{
    if (given.disk.empty() && given.group.empty())
        return "--disk or --group is missing";
    return given.off || given.every != 0 ? "" : "--start and --every are missing, or --off";
}

std::string no_complaint(const verb_options & /*given*/)
{
    return "";
}

// --- Bodies ------------------------------------------------------------------------------------------

snapshot_times times_of(const verb_options &given)
{
    return {parse_point_in_time(given.start).value_or(0), given.every};
}

snapshot_source source_of(const verb_options &given, const std::string &disk)
{
    return given.group.empty() ? snapshot_source{false, disk} : snapshot_source{true, given.group};
}

optional_text protect_body(const verb_options &given)
{
    std::vector<mirror_pair> pairs;
    for (const std::string &word : given.words) {
        const size_t sign = word.find('=');
        pairs.push_back({word.substr(0, sign), word.substr(sign + 1)});
    }
    return protection_document(pairs, source_of(given, pairs.back().source), times_of(given));
}

optional_text list_body(const verb_options &given)
{
    return disk_list_document(given.words);
}

optional_text schedule_body(const verb_options &given)
{
    return schedule_document(source_of(given, given.disk), times_of(given));
}

optional_text no_body(const verb_options & /*given*/)
{
    return std::nullopt;
}

// --- The table ---------------------------------------------------------------------------------------

constexpr char protected_note[] = "SRC is the GUID of a protected disk.\n";

constexpr verb verbs[] = {
    {"protect", "SRC=MIRROR... [--group NAME] [--start T --every SECONDS]",
     "put disks under protection, each with its mirror",
     "SRC is the GUID of a disk of the host, MIRROR that of the mirror. The host may take most of a minute "
     "for\n"
     "each; without --timeout, qelc waits as long as that takes. Without --group, a schedule goes with one "
     "disk.\n",
     command_code("add_backup"), add_protect_options, protect_complaint, protect_body, nullptr},
    {"unprotect", "SRC...", "take disks out of protection", protected_note, command_code("del_backup"),
     add_words, list_complaint, list_body, nullptr},
    {"resync", "SRC...", "synchronise the mirrors of disks from the start", protected_note,
     command_code("init_mirror"), add_words, list_complaint, list_body, nullptr},
    {"cancel-resync", "SRC...", "stop the synchronisation of mirrors", protected_note,
     command_code("cancel_init_mirror"), add_words, list_complaint, list_body, nullptr},
    {"schedule", "(--disk GUID | --group NAME) (--start T --every SECONDS | --off)",
     "say when snapshots of a disk or a group are taken", "", command_code("set_cdp_schedule"),
     add_schedule_options, schedule_complaint, schedule_body, nullptr},
    {"mirrors", "[--watch [SECONDS]]", "show the mirrors and how far they are", "",
     command_code("get_client_info"), add_mirrors_options, no_complaint, no_body, mirrors_page},
};
} // namespace

void add_verbs(CLI::App &app, verb_options &given)
{
    app.require_subcommand(0, 1);
    for (const verb &one : verbs) {
        CLI::App *subcommand = app.add_subcommand(one.name, one.description)->group("Verbs")->fallthrough();
        one.add_options(*subcommand, given);
    }
}

const verb *verb_of(const CLI::App &app)
{
    const auto *found =
        std::ranges::find_if(verbs, [&](const verb &one) { return app.get_name() == one.name; });
    return found == std::end(verbs) ? nullptr : found;
}

const verb *parsed_verb(const CLI::App &app)
{
    const std::vector<CLI::App *> subcommands = app.get_subcommands();
    return subcommands.empty() ? nullptr : verb_of(*subcommands.front());
}
