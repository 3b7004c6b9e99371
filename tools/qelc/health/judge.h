// How well a host is, in the words and numbers of a monitoring plugin.
#pragma once

#include "tools/qelc/health/host_health.h"
#include "tools/qelc/health/limits.h"

#include <string>
#include <vector>

// In the order of their severity. The numbers are the exit statuses of plugins.
enum class grade { ok = 0, unknown = 3, warning = 1, critical = 2 };

bool is_worse(grade one, grade other);

// "CRITICAL", "critical".
const char *word_of(grade how);
const char *small_word_of(grade how);

// Something that is not well.
struct finding {
    grade how;
    std::string text;
    std::string hint; // what to type or to do; "" for nothing
};

// OK if the mirror is well; TEXT then says what it does.
finding judge_mirror(const mirror_health &one, const health_limits &limits);

struct verdict {
    grade how = grade::ok;
    std::string text; // in one line: the worst, or what is well
    std::string hint;
    std::vector<finding> findings; // the worst first
};

verdict judge(const host_health &seen, const health_limits &limits);

// The worst first, then by name.
void sort_by_grade(std::vector<mirror_health> &mirrors, const health_limits &limits);
