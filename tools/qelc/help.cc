#include "tools/qelc/help.h"

#include "tools/qelc/verbs.h"

#include <CLI/CLI.hpp>

namespace {
class formatter : public CLI::Formatter {
    std::string make_description(const CLI::App *app) const override
    {
        const std::string name = full_name_of(*app);
        return (name.empty() ? "" : "qelc " + name + ": ") + app->get_description() + "\n\n";
    }

    std::string make_usage(const CLI::App *app, std::string /*name*/) const override
    {
        const std::string name = full_name_of(*app);
        if (name.empty())
            return "Usage: qelc [OPTIONS] COMMAND [BODY...]\n"
                   "       qelc [OPTIONS] COMMAND OPTIONS\n"
                   "       qelc [OPTIONS] VERB ...\n";
        const std::string usage = "Usage: qelc " + name;
        if (const verb *one = find_verb(name))
            return usage + (*one->usage ? " " : "") + one->usage + "\n";
        if (has_verbs(*app))
            return usage + " VERB ...\n";
        return usage + " OPTIONS\n       qelc " + name + " BODY...\n";
    }

    // What an option needs or excludes is in the usage, and in the error message.
    std::string make_option_opts(const CLI::Option *option) const override
    {
        if (!option->get_option_text().empty())
            return " " + option->get_option_text();
        if (option->get_type_size() == 0)
            return "";
        std::string text = option->get_type_name();
        if (const std::string preset = option->get_default_str(); !preset.empty())
            text += "=" + preset;
        if (option->get_required())
            text += text.empty() ? "REQUIRED" : " REQUIRED";
        return text.empty() ? "" : " " + text;
    }

    std::string make_footer(const CLI::App *app) const override
    {
        const std::string name = full_name_of(*app);
        if (name.empty())
            return "qelc COMMAND --help and qelc VERB --help show the options of each.\n";
        if (has_verbs(*app))
            return "qelc " + name + " VERB --help shows the options of each.\n";
        const verb *one = find_verb(name);
        return app->get_footer() + (one ? one->note : "") +
               "The general options work here, too: see qelc --help.\n";
    }

    // One empty line between parts, and none at the end.
    std::string make_help(const CLI::App *app, std::string name, CLI::AppFormatMode mode) const override
    {
        std::string text = CLI::Formatter::make_help(app, std::move(name), mode);
        for (size_t gap; (gap = text.find("\n\n\n")) != std::string::npos;)
            text.erase(gap, 1);
        while (text.ends_with("\n\n"))
            text.pop_back();
        return text;
    }

    static bool has_verbs(const CLI::App &app) { return !app.get_subcommands({}).empty(); }
};
} // namespace

std::shared_ptr<CLI::FormatterBase> help_format()
{
    return std::make_shared<formatter>();
}

std::string full_name_of(const CLI::App &app)
{
    if (!app.get_parent())
        return "";
    const std::string above = full_name_of(*app.get_parent());
    return (above.empty() ? "" : above + " ") + app.get_name();
}
