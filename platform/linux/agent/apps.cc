#include "platform/linux/agent/apps.h"

#include "base/secret.h"
#include "platform/linux/agent/records.h"
#include "platform/linux/state/folders.h"

#include <charconv>
#include <cstdlib>

namespace {

constexpr std::pair<const char *, char * Kavapp::*> texts[] = {
    {"instance_name", &Kavapp::instance_name}, // the key comes first
    {"db_name", &Kavapp::db_name},
    {"db_user", &Kavapp::db_user},
    {"db_passwd", &Kavapp::db_passwd},
    {"oracle_home", &Kavapp::oracle_home},
    {"host", &Kavapp::host},
    {"port", &Kavapp::port},
};

// An absent text has no field; an empty text has an empty field.
record_fields fields_of(const Kavapp &app)
{
    record_fields fields;
    fields.reserve(std::size(texts) + 2); // a list that grew would leave copies
    for (const auto &[key, member] : texts) {
        if (app.*member)
            fields.emplace_back(key, app.*member);
    }
    fields.emplace_back("db_type", std::to_string(app.db_type));
    fields.emplace_back("archive_log", std::to_string(app.archive_log));
    return fields;
}

void set_field(Kavapp *app, const std::string &key, const std::string &value)
{
    for (const auto &[name, member] : texts) {
        if (key == name && !(app->*member))
            app->*member = text_copy(value);
    }
    const char *end = value.data() + value.size();
    if (key == "db_type")
        std::from_chars(value.data(), end, app->db_type);
    if (key == "archive_log")
        std::from_chars(value.data(), end, app->archive_log);
}

app_record app_of(const record_fields &fields)
{
    app_record app(zeroed<Kavapp>());
    for (const auto &[key, value] : fields)
        set_field(app.get(), key, value);
    return app;
}

// A field that is unknown, duplicated or out of order does not survive the conversion to Kavapp and back.
bool is_app(const record_fields &fields)
{
    const app_record app = app_of(fields);
    if (!app->instance_name)
        return false;
    record_fields again = fields_of(*app);
    const wiped_at_end after_comparison(again);
    return again == fields;
}

constexpr record_kind application = {kavcdpagt, "application", is_app};

} // namespace

void free_app(Kavapp *app)
{
    for (const auto &text : texts)
        free_wiped(app->*text.second);
    free(app);
}

bool keep_app(const Kavapp &app)
{
    record_fields fields = fields_of(app);
    const wiped_at_end once_stored(fields);
    return store_record(application, fields);
}

int forget_app(const char *instance_name)
{
    return remove_record(application, instance_name);
}

bool load_apps(std::vector<app_record> *apps)
{
    return load_all(application, app_of, apps);
}
