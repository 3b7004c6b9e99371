// The databases ("applications") that the agent knows, keyed by their instance name.
#pragma once

#include "base/deleter.h"
#include "kavagt.h"

#include <memory>
#include <vector>

// Frees the record and its texts, which come from malloc.
void free_app(Kavapp *app);
using app_record = std::unique_ptr<Kavapp, deleter<free_app>>;

// Stores a copy of APP, which must have an instance name; replaces one of the same name. False after a log
// line.
bool keep_app(const Kavapp &app);

// 1 if it was removed, 0 if it did not exist, -1 after a log line.
int forget_app(const char *instance_name);

// False after a log line.
bool load_apps(std::vector<app_record> *apps);
