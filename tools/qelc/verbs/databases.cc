// Verbs for databases.
#include "protocol/commands.h"
#include "tools/qelc/bodies/database.h"
#include "tools/qelc/nearest.h"
#include "tools/qelc/password.h"
#include "tools/qelc/verbs/families.h"

#include <algorithm>

namespace {
std::string set_document(const verb_options &given)
{
    return database_document(
        {given.instance, given.user, given.password, given.oracle_home, given.archive_log});
}

optional_text database_body(const verb_options &given)
{
    verb_options shown = given;
    if (given.user)
        shown.password = "********"; // does not tell the length
    return set_document(shown);
}

optional_text database_end_body(const verb_options &given)
{
    return database_end_document(given.instance);
}

bool is_registered(const host_view &view, const std::string &instance)
{
    return std::ranges::find(view.databases, instance) != view.databases.end();
}

outcome planned(verb_item item, const char *text)
{
    item.text = text;
    return {.items = {std::move(item)}, .is_dry_run = true};
}

outcome set_database(host &at, const verb_options &given)
{
    verb_options complete = given;
    std::string error;
    if (given.user && !given.dry_run &&
        !(complete.password = read_password(given.password_file, "password of " + *given.user + ": ", error)))
        throw verb_end{exit_usage, error,
                       "--password-file PATH names a file whose first line is the password"};
    // The daemon would answer success, and keep what it has.
    if (is_registered(at.view(), given.instance))
        throw verb_end{exit_refused, "the database " + given.instance + " is registered already",
                       "to change it: qelc db delete --instance " + given.instance + ", then again"};
    verb_item item{"database", given.instance, "", exit_ok, "is registered"};
    if (given.dry_run)
        return planned(item, "registered");
    require_success(*at.ask(command::db_set, set_document(complete)));
    if (!is_registered(at.look_again(), given.instance))
        item.refuse(exit_refused, "the daemon has taken it, but does not list it");
    return outcome_of({item}, see_log);
}

outcome delete_database(host &at, const verb_options &given)
{
    if (!is_registered(at.view(), given.instance))
        throw verb_end{exit_not_found,
                       "there is no database " + given.instance +
                           did_you_mean(given.instance, at.view().databases),
                       "the report shows the databases: qelc get_client_info"};
    verb_item item{"database", given.instance, "", exit_ok, "is forgotten"};
    if (given.dry_run)
        return planned(item, "forgotten");
    require_success(*at.ask(command::dbcfg_del, database_end_document(given.instance)));
    if (is_registered(at.look_again(), given.instance))
        item.refuse(exit_refused, "it is still registered");
    return outcome_of({item}, see_log);
}

constexpr verb table[] = {
    {.name = "db set",
     .usage = "--instance NAME [--user NAME [--password-file PATH]]\n"
              "            [--oracle-home DIR] [--archive-log] [--dry-run]",
     .description = "register an Oracle database of the host",
     .note = "With --print-body, asterisks stand for the password, and nobody is asked for it.\n",
     .code = command::db_set,
     .add_options = add_database_options,
     .body = database_body,
     .act = set_database},
    {.name = "db delete",
     .usage = "--instance NAME [--dry-run]",
     .description = "forget a database of the host",
     .code = command::dbcfg_del,
     .add_options = add_instance,
     .body = database_end_body,
     .act = delete_database},
};
} // namespace

std::span<const verb> database_verbs()
{
    return table;
}
