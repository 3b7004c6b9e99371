#include "tools/qelc/views/envelope.h"

#include <cstdio>
#include <nlohmann/json.hpp>

const char *status_word(exit_status status)
{
    constexpr const char *words[] = {"done",      "failed",      "usage", "unreachable",
                                     "not-found", "not-adopted", "partly"};
    return words[status];
}

void print_envelope(const std::string &command, exit_status status, const std::string &reason,
                    const std::string &hint, const json_object &results)
{
    json_object object;
    object["command"] = command;
    object["status"] = status_word(status);
    object["reason"] = reason.empty() ? json_object() : json_object(reason);
    object["hint"] = hint.empty() ? json_object() : json_object(hint);
    object["results"] = results;
    puts(object.dump(-1, ' ', false, json_object::error_handler_t::replace).c_str());
}
