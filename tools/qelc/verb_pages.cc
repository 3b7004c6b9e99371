#include "tools/qelc/verb_pages.h"

#include "tools/qelc/help.h"
#include "tools/qelc/verbs.h"

#include <CLI/CLI.hpp>
#include <algorithm>

namespace {
// --- Of both -----------------------------------------------------------------------------------------

std::string in_one_line(std::string text)
{
    std::replace(text.begin(), text.end(), '\n', ' ');
    text.erase(std::unique(text.begin(), text.end(), [](char a, char b) { return a == ' ' && b == ' '; }),
               text.end());
    return text.substr(0, text.find_last_not_of(' ') + 1);
}

bool takes_value(const CLI::Option &option)
{
    return option.get_items_expected_max() > 0;
}

// "-f" and "--file"; none for a word that stands alone.
std::vector<std::string> names_of(const CLI::Option &option)
{
    std::vector<std::string> names;
    for (const std::string &name : option.get_snames())
        names.push_back("-" + name);
    for (const std::string &name : option.get_lnames())
        names.push_back("--" + name);
    return names;
}

// Verbs, kinds of verbs, and commands with options, in the order of the help.
std::vector<const CLI::App *> subcommands_of(const CLI::App &app)
{
    return app.get_subcommands([](const CLI::App *) { return true; });
}

// --- The manual page ---------------------------------------------------------------------------------

// Text that man(7) shows as it is: a dash must not become a hyphen, or nobody could copy an option.
std::string plain(const std::string &text)
{
    std::string escaped;
    for (const char c : in_one_line(text))
        escaped += c == '-'    ? "\\-"
                   : c == '\\' ? "\\e"
                   : c == '\'' ? "\\(aq"
                   : c == '"'  ? "\\(dq"
                               : std::string(1, c);
    return escaped.starts_with('.') ? "\\&" + escaped : escaped;
}

std::string shown_type(const CLI::Option &option)
{
    if (!option.get_option_text().empty())
        return option.get_option_text();
    const std::string preset = option.get_default_str();
    return option.get_type_name() + (preset.empty() ? "" : " (" + preset + ")");
}

std::string option_entry(const CLI::Option &option)
{
    std::string names;
    for (const std::string &name : names_of(option))
        names += (names.empty() ? "" : ", ") + name;
    if (names.empty())
        names = option.get_name();
    const std::string type = takes_value(option) ? shown_type(option) : "";
    return ".TP\n.BI \"" + plain(names) + "\" \" " + plain(type) + "\"\n" + plain(option.get_description()) +
           "\n";
}

std::string option_entries(const CLI::App &app)
{
    std::string text;
    for (const CLI::Option *option : app.get_options()) {
        if (option != app.get_help_ptr() || !app.get_parent())
            text += option_entry(*option);
    }
    return text;
}

std::string verb_section(const CLI::App &app)
{
    const std::string name = full_name_of(app);
    const verb *one = find_verb(name);
    std::string text;
    if (one || subcommands_of(app).empty()) {
        text = ".SS \"qelc " + plain(name + " " + (one ? one->usage : "OPTIONS")) + "\"\n" +
               plain(app.get_description()) + ".\n";
        if (one && *one->note)
            text += plain(one->note) + "\n";
        text += option_entries(app);
        if (!app.get_footer().empty())
            text += ".PP\n" + plain(app.get_footer()) + "\n";
    }
    for (const CLI::App *below : subcommands_of(app))
        text += verb_section(*below);
    return text;
}

std::string manual(const CLI::App &app)
{
    std::string text = ".SH OPTIONS\nThey may stand before or after a verb.\n" + option_entries(app);
    text += ".SH VERBS, AND COMMANDS WITH OPTIONS\n";
    for (const CLI::App *below : subcommands_of(app))
        text += verb_section(*below);
    return text;
}

// --- Completion --------------------------------------------------------------------------------------

std::string completion_lines(const CLI::App &app)
{
    const std::string context = full_name_of(app);
    std::string text;
    const auto add = [&](const char *kind, const std::string &word, const std::string &description) {
        text += context + "\t" + kind + "\t" + word + "\t" + in_one_line(description) + "\n";
    };
    for (const CLI::Option *option : app.get_options()) {
        for (const std::string &name : names_of(*option))
            add(takes_value(*option) ? "value" : "option", name, option->get_description());
    }
    for (const CLI::App *below : subcommands_of(app)) {
        add("verb", below->get_name(), below->get_description());
        text += completion_lines(*below);
    }
    return text;
}
} // namespace

std::optional<std::string> verb_page(const CLI::App &app, const std::string &what)
{
    if (what == "man")
        return manual(app);
    return what == "completion" ? std::optional(completion_lines(app)) : std::nullopt;
}
