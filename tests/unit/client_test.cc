#include "client/client.h"
#include "tests/support/captured_log.h"
#include "tests/unit/shown.h"

#include <gtest/gtest.h>

namespace {
struct Client : testing::Test {
    Client()
    {
        c.guid = "client-guid";
        c.alias = "alias";
        c.manager = std::make_unique<qel_manager>();
        c.manager->guid = "manager-guid";
        c.manager->target_iqn = "iqn.2026-01.example:target";
        c.manager->ip_list = {{0x0100007f}, {0x0200007f}};
        take_log();
    }

    qel_t c;
};

TEST_F(Client, AppointedManagerHasGuidAndAddressesButNoTargetEvenWhenItIsTheOwn)
{
    qel_t other;
    for (qel_t *appointing : {&other, &c}) {
        ASSERT_EQ(qel_mngr_appoint(c.manager.get(), appointing), 0);
        EXPECT_EQ(shown(*appointing->manager), "manager-guid - [127.0.0.1 127.0.0.2]");
    }
}

TEST_F(Client, RemovedManagerTakesTheAliasAlong)
{
    for (int times = 0; times < 2; times++) {
        ASSERT_EQ(qel_mngr_remove(&c), 0);
        EXPECT_EQ(shown(c), "client-guid - 0 0; ;;;");
    }
    EXPECT_EQ(take_log(LOG_INFO), "6 Delete manager 'manager-guid'\n6 Delete manager\n");
}

TEST_F(Client, ProtectedMeansAManagerWithAGuid)
{
    EXPECT_EQ(qel_is_protected(&c), 1);
    for (const optional_text &guid : {optional_text(""), optional_text()}) {
        c.manager->guid = guid;
        EXPECT_EQ(qel_is_protected(&c), 0);
    }
    c.manager.reset();
    EXPECT_EQ(qel_is_protected(&c), 0);
}

TEST_F(Client, PairNeedsBothGuidsExactly)
{
    EXPECT_EQ(qel_is_pair("manager-guid", "client-guid", &c), 1);
    EXPECT_EQ(qel_is_pair("manager-guid", "Client-guid", &c), 0);
    EXPECT_EQ(qel_is_pair("client-guid", "manager-guid", &c), 0);
    c.manager->guid.reset();
    EXPECT_EQ(qel_is_pair("manager-guid", "client-guid", &c), 0);
    EXPECT_EQ(take_log(), "");
    c.guid.reset();
    EXPECT_EQ(qel_is_pair("manager-guid", "client-guid", &c), 0);
    EXPECT_EQ(qel_is_pair(nullptr, "client-guid", &c), 0);
    EXPECT_EQ(take_log(), "3 Fatal: unkown client guid\n3 Invalid input parameter\n");
}
} // namespace
