// What every test of the shipped daemon stands on: a scripted world, the system log, and the daemon itself,
// not yet started, with a configuration that nobody has adopted. At the end of a test the daemon is killed,
// and the log and the script have their say.
#pragma once

#include "protocol/commands.h"
#include "tests/scripted/script.h"
#include "tests/support/client.h"
#include "tests/support/daemon.h"
#include "tests/support/eventually.h"
#include "tests/support/files.h"
#include "tests/support/manager.h"
#include "tests/support/processes.h"
#include "tests/support/requests.h"
#include "tests/support/system_log.h"

#include <gtest/gtest.h>

class system_test : public testing::Test {
protected:
    system_test()
    {
        write_config();
        daemon.tool("get_db_home.sh", "echo 0");
    }

    // In this order, so that the daemon goes first and the script is judged last.
    script world;
    system_log log;
    qelcd daemon;
};
