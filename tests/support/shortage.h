// Memory that runs out in the test's own process, which is linked with the library of bench/fault_memory.h. A
// sanitizer has an allocator of its own: there nothing of this can be built.
#pragma once

#include "bench/fault_memory.h"

#include <gtest/gtest.h>

// Calls CALL while its Nth allocation fails, alone and with all later ones, for every N, or every STEPth
// beyond the first hundred, and once more when none is left. Then calls CHECK with the result and with
// whether at most one failed.
template <class Call, class Check>
void at_every_allocation(const Call &call, const Check &check, uint64_t step = 1)
{
    fault_plan &plan = *fault_plan_of_process();
    for (const bool and_later : {false, true}) {
        for (uint64_t number = 1;; number += number < 100 ? 1 : step) {
            SCOPED_TRACE("allocation " + std::to_string(number) + (and_later ? " and later" : ""));
            plan.arm(number, and_later, fault_everyone);
            const auto result = call();
            plan.disarm();
            check(result, !and_later);
            if (plan.failed == 0)
                break;
        }
    }
}
