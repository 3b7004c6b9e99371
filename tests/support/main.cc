// Tests of the shipped daemon write to /etc and /var/run: they run in a private host or not at all.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>

int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    if (!testing::GTEST_FLAG(list_tests) && access("/run/private-host", F_OK) != 0) {
        fprintf(stderr, "run this through scripts/private-host\n");
        return 2;
    }
    return RUN_ALL_TESTS();
}
