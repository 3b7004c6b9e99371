#include "client/databases.h"

#include <kavagt.h>

#include <cstdlib>

namespace {
qel_db_t to_database(const Kavapp &app)
{
    return {
        .instance_name = optional_copy(app.instance_name),
        .db_type = app.db_type,
        .archive_log = app.archive_log,
        .db_name = optional_copy(app.db_name),
        .db_user = optional_copy(app.db_user),
        .oracle_home = optional_copy(app.oracle_home),
        .host = optional_copy(app.host),
        .port = optional_copy(app.port),
    };
}

void free_app(Kavapp *app)
{
    for (char *text :
         {app->instance_name, app->db_name, app->db_user, app->oracle_home, app->host, app->port})
        free(text);
    free_wiped(app->db_passwd);
    free(app);
}

// The applications that the library lists; the destructor frees them.
struct app_list {
    kav_list head{};
    int result;
    app_list()
    {
        kav_list_init(&head);
        result = Kav_list_app(&head);
    }
    app_list(const app_list &) = delete;
    app_list &operator=(const app_list &) = delete;
    ~app_list()
    {
        for (kav_list *link = head.next; link != &head;) {
            auto *app = kav_list_entry(link, Kavapp, link);
            link = link->next;
            free_app(app);
        }
    }
};

// The library's view of a text that lives on in our record.
char *borrowed(optional_text &text)
{
    return text ? text->data() : nullptr;
}
} // namespace

int qel_get_dbs(std::list<qel_db_t> *list)
{
    if (!list)
        return -1;
    list->clear();
    const app_list apps;
    for (const kav_list *link = apps.head.next; link != &apps.head; link = link->next)
        list->push_back(to_database(*kav_list_entry(link, const Kavapp, link)));
    wipe_dead_stack();
    return apps.result;
}

int qel_connect_database(qel_db_t &database)
{
    Kavapp app = {.link = {},
                  .instance_name = borrowed(database.instance_name),
                  .db_type = database.db_type,
                  .archive_log = database.archive_log,
                  .db_name = borrowed(database.db_name),
                  .db_user = borrowed(database.db_user),
                  .db_passwd = database.db_passwd.get(),
                  .oracle_home = borrowed(database.oracle_home),
                  .host = borrowed(database.host),
                  .port = borrowed(database.port)};
    return Kav_connect_db_flush_cfg(&app);
}
