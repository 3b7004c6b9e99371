#include "tools/qelc/outcome.h"

#include "tools/common/visible.h"
#include "tools/qelc/views/envelope.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

namespace {
std::string line_of(const verb_item &item)
{
    return visible(item.name + (item.text.empty() ? "" : ": ") + item.text) + "\n";
}

const char *item_word(const verb_item &item, bool is_dry_run)
{
    if (item.is_open())
        return is_dry_run ? "planned" : "done";
    return item.status == exit_not_found ? "not-found" : "refused";
}

json_object object_of(const verb_item &item, bool is_dry_run)
{
    json_object object;
    object[item.kind] = item.name;
    if (!item.guid.empty())
        object["guid"] = item.guid;
    object["status"] = item_word(item, is_dry_run);
    object[item.is_open() ? "text" : "reason"] = item.text;
    for (const auto &[name, value] : item.more)
        object[name] = value;
    return object;
}

std::string headline_of(const std::string &command, const outcome &end)
{
    if (!end.headline.empty())
        return end.headline;
    return command + " could not be done" + (end.status == exit_partly ? " for all" : "");
}

void print_items(const outcome &end)
{
    if (end.is_dry_run && std::ranges::any_of(end.items, &verb_item::is_open))
        puts("dry run, nothing is changed; this would be done:");
    for (const verb_item &item : end.items) {
        if (item.is_open())
            fputs(line_of(item).c_str(), stdout);
    }
    if (!end.remark.empty())
        puts(end.remark.c_str());
}

int print_json(const std::string &command, const outcome &end)
{
    json_object results = end.records ? *end.records : json_object::array();
    for (const verb_item &item : end.items)
        results.push_back(object_of(item, end.is_dry_run));
    print_envelope(command, end.status, end.reason, end.hint, results);
    return end.status;
}
} // namespace

outcome outcome_of(std::vector<verb_item> items, const std::string &hint)
{
    outcome end;
    const auto open = std::ranges::count_if(items, &verb_item::is_open);
    for (const verb_item &item : items) {
        if (item.is_open())
            continue;
        end.status = open > 0 ? exit_partly : end.reason.empty() ? item.status : exit_refused;
        end.reason += (end.reason.empty() ? "" : "; ") + item.name + ": " + item.text;
        end.hint = hint;
    }
    // All of one kind: there are none of them.
    if (open == 0 && !items.empty() &&
        std::ranges::all_of(items, [](const verb_item &item) { return item.status == exit_not_found; }))
        end.status = exit_not_found;
    end.items = std::move(items);
    return end;
}

outcome page_outcome(std::string page, json_object &&records)
{
    outcome end;
    end.page = std::move(page);
    end.records = std::make_shared<json_object>(std::move(records));
    return end;
}

int print_outcome(const std::string &command, const outcome &end, bool as_json)
{
    if (as_json)
        return print_json(command, end);
    if (end.page.empty())
        print_items(end);
    fputs(end.page.c_str(), stdout);
    fflush(stdout);
    if (end.status != exit_ok)
        fprintf(stderr, "error: %s: %s\n", visible(headline_of(command, end)).c_str(),
                visible(end.reason).c_str());
    if (!end.hint.empty())
        fprintf(stderr, "hint: %s\n", visible(end.hint).c_str());
    return end.status;
}
