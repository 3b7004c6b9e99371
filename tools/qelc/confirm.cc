#include "tools/qelc/confirm.h"

#include "tools/common/visible.h"

#include <unistd.h>

#include <cstdio>
#include <iostream>

bool has_to_ask(const verb_options &given, const std::string &what)
{
    if (given.yes || given.dry_run)
        return false;
    if (isatty(STDIN_FILENO) == 0)
        throw verb_end{exit_refused, what + ", and there is no terminal to ask at",
                       "look with --dry-run; --yes does it without a question"};
    return true;
}

bool is_typed(const std::string &kind, const std::string &name)
{
    fprintf(stderr, "Type the name of the %s (%s), or anything else to stop: ", kind.c_str(),
            visible(name).c_str());
    std::string typed;
    std::getline(std::cin, typed);
    return typed == name;
}

void require_typed(const std::string &kind, const std::string &name)
{
    if (!is_typed(kind, name))
        throw verb_end{exit_refused, "you did not confirm it; nothing is changed", ""};
}
