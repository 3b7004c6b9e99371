#include "tools/verb_options.h"

#include "tools/points_in_time.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <span>

namespace {
// --- Values ------------------------------------------------------------------------------------------

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

// --- Words -------------------------------------------------------------------------------------------

bool is_pair(const std::string &word)
{
    const size_t sign = word.find('=');
    return sign != std::string::npos && sign > 0 && sign + 1 < word.size();
}

// The words of a verb have the NAMES of its usage; the last of these stands for all that follow, too.
std::string words_complaint(const std::vector<std::string> &words, std::span<const char *const> names,
                            size_t least, size_t most)
{
    if (words.size() < least)
        return std::string(names[words.size()]) + " is missing";
    if (words.size() > most)
        return words[most] + " is one word too many";
    const auto empty = static_cast<size_t>(std::ranges::find(words, "") - words.begin());
    return empty < words.size() ? std::string(names[std::min(empty, names.size() - 1)]) + " is empty" : "";
}

constexpr size_t any_number = std::string::npos;
constexpr const char *source_names[] = {"SRC"};
constexpr const char *volume_names[] = {"GUID"};
constexpr const char *group_names[] = {"NAME", "GUID"};
} // namespace

void add_no_options(CLI::App & /*app*/, verb_options & /*given*/) {}

void add_words(CLI::App &app, verb_options &given)
{
    app.add_option("words", given.words)->group(""); // the usage says what they are
}

void add_protect_options(CLI::App &app, verb_options &given)
{
    add_words(app, given);
    add_group(app, given, "take the others back when one fails, and give the schedule to this group");
    add_times(app, given);
}

void add_source_options(CLI::App &app, verb_options &given)
{
    auto *disk = app.add_option("--disk", given.disk, "a protected disk");
    disk->type_name("GUID")->check(check_not_empty);
    add_group(app, given, "a consistency group")->excludes(disk);
}

void add_schedule_options(CLI::App &app, verb_options &given)
{
    add_source_options(app, given);
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

void add_instance(CLI::App &app, verb_options &given)
{
    app.add_option("--instance", given.instance, "its name")
        ->type_name("NAME")
        ->check(check_not_empty)
        ->required();
}

void add_database_options(CLI::App &app, verb_options &given)
{
    add_instance(app, given);
    auto *user = app.add_option("--user", given.user, "who connects to it, with a password");
    user->type_name("NAME")->check(check_not_empty);
    app.add_option("--password-file", given.password_file,
                   "file with the password in its first line, - for standard\n"
                   "input; else it is asked for at the terminal")
        ->type_name("PATH")
        ->check(check_not_empty)
        ->needs(user);
    app.add_option("--oracle-home", given.oracle_home, "where it is installed")->type_name("DIR");
    app.add_flag("--archive-log", given.archive_log, "it keeps archive logs");
}

std::string no_complaint(const verb_options & /*given*/)
{
    return "";
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

std::string sources_complaint(const verb_options &given)
{
    return words_complaint(given.words, source_names, 1, any_number);
}

std::string volumes_complaint(const verb_options &given)
{
    return words_complaint(given.words, volume_names, 1, any_number);
}

std::string source_complaint(const verb_options &given)
{
    return given.disk.empty() && given.group.empty() ? "--disk or --group is missing" : "";
}

std::string schedule_complaint(const verb_options &given)
{
    std::string complaint = source_complaint(given);
    if (!complaint.empty())
        return complaint;
    return given.off || given.every != 0 ? "" : "--start and --every are missing, or --off";
}

std::string group_complaint(const verb_options &given)
{
    return words_complaint(given.words, group_names, 1, any_number);
}

std::string new_members_complaint(const verb_options &given)
{
    return words_complaint(given.words, group_names, 2, any_number);
}

std::string old_member_complaint(const verb_options &given)
{
    return words_complaint(given.words, group_names, 2, 2);
}

std::string group_name_complaint(const verb_options &given)
{
    return words_complaint(given.words, group_names, 1, 1);
}
