#include "client/report_values.h"

#include <cstring>

int format_wwn(std::string *dst, const char *wwn)
{
    constexpr size_t prefix = 2; // "0x"
    if (!dst || !wwn)
        return -1;
    const size_t length = strlen(wwn);
    if (length % 2 != 0 || length <= prefix)
        return -1;
    std::string text;
    for (size_t i = prefix; i < length; i += 2) {
        if (!text.empty())
            text += ':';
        text.append(wwn + i, 2);
    }
    *dst = std::move(text);
    return static_cast<int>(dst->size());
}

std::string colon_separated(const optional_text &wwn)
{
    std::string text;
    format_wwn(&text, c_text(wwn));
    return text;
}

std::string wrap_mirror_guid(const std::string &guid)
{
    return "kav_{" + guid + "}";
}

const char *database_type(const qel_db_t &database)
{
    constexpr uint32_t oracle = 1;
    return database.db_type == oracle ? "0" : "-1";
}
