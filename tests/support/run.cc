#include "tests/support/run.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>

int run_in_private_host(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    if (!testing::GTEST_FLAG(list_tests) && access("/run/private-host", F_OK) != 0) {
        fprintf(stderr, "run this through scripts/private-host\n");
        return 2;
    }
    return RUN_ALL_TESTS();
}
