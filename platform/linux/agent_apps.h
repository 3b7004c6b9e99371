// The databases ("applications") that the agent knows, keyed by their instance name.
#pragma once

#include "kavagt.h"

#include <memory>
#include <vector>

struct app_freer {
    void operator()(Kavapp *app) const noexcept;
};
using app_record = std::unique_ptr<Kavapp, app_freer>; // malloc'd, its texts as well

// Keeps a copy of APP, which has an instance name, in place of one of that name. False after a log line.
bool keep_app(const Kavapp &app);

// 1 when it is gone, 0 when there was none, -1 after a log line.
int forget_app(const char *instance_name);

// False after a log line.
bool load_apps(std::vector<app_record> *apps);
