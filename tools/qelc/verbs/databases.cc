// Verbs for databases.
#include "protocol/commands.h"
#include "tools/qelc/bodies/database.h"
#include "tools/qelc/verbs/families.h"

namespace {
optional_text database_body(const verb_options &given)
{
    return database_document(
        {given.instance, given.user, given.password, given.oracle_home, given.archive_log});
}

optional_text database_end_body(const verb_options &given)
{
    return database_end_document(given.instance);
}

constexpr verb table[] = {
    {.name = "db set",
     .usage = "--instance NAME [--user NAME [--password-file PATH]]\n"
              "            [--oracle-home DIR] [--archive-log]",
     .description = "register an Oracle database of the host",
     .note = "With --print-body, asterisks stand for the password, and nobody is asked for it.\n",
     .code = command::db_set,
     .add_options = add_database_options,
     .body = database_body},
    {.name = "db delete",
     .usage = "--instance NAME",
     .description = "forget a database of the host",
     .code = command::dbcfg_del,
     .add_options = add_instance,
     .body = database_end_body},
};
} // namespace

std::span<const verb> database_verbs()
{
    return table;
}
