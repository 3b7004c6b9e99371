// Tests of the shipped daemon write to /etc and /var/run: they run in a private host or not at all.
#include "tests/support/run.h"

int main(int argc, char **argv)
{
    return run_in_private_host(argc, argv);
}
