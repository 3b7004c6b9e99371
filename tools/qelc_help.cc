#include "tools/qelc_help.h"

#include "tools/verbs.h"

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
        if (const verb *one = verb_of(*app))
            return std::string("Usage: qelc ") + one->name + " " + one->usage + "\n";
        if (const std::string name = full_name_of(*app); !name.empty())
            return "Usage: qelc " + name + " VERB ...\n";
        return "Usage: qelc [OPTIONS] COMMAND [BODY...]\n"
               "       qelc [OPTIONS] VERB ...\n";
    }

    std::string make_group(std::string group, bool positional,
                           std::vector<const CLI::Option *> options) const override
    {
        return group == body_group ? "" : CLI::Formatter::make_group(group, positional, options);
    }

    // What an option needs or excludes is told by the usage, and by the complaint when it is not heeded.
    std::string make_option_opts(const CLI::Option *option) const override
    {
        if (!option->get_option_text().empty())
            return " " + option->get_option_text();
        if (option->get_type_size() == 0)
            return "";
        const std::string preset = option->get_default_str();
        return " " + option->get_type_name() + (preset.empty() ? "" : "=" + preset);
    }

    std::string make_footer(const CLI::App *app) const override
    {
        if (const verb *one = verb_of(*app))
            return std::string(one->note) + "The general options of qelc --help may stand here, too.\n";
        if (const std::string name = full_name_of(*app); !name.empty())
            return "qelc " + name + " VERB --help tells the rest.\n";
        return app->get_footer() + "\n";
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
};
} // namespace

std::shared_ptr<CLI::FormatterBase> help_format()
{
    return std::make_shared<formatter>();
}
