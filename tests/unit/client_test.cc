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

TEST_F(Client, PairNeedsBothGuidsExactly)
{
    EXPECT_EQ(qel_is_pair("manager-guid", "client-guid", &c) + qel_is_protected(&c), 2);
    EXPECT_EQ(qel_is_pair("manager-guid", "Client-guid", &c), 0);
    EXPECT_EQ(qel_is_pair("client-guid", "manager-guid", &c), 0);
    c.manager->guid = "";
    EXPECT_EQ(qel_is_protected(&c), 0);
    c.manager->guid.reset();
    EXPECT_EQ(qel_is_pair("manager-guid", "client-guid", &c) + qel_is_protected(&c), 0);
    EXPECT_EQ(take_log(), "");
    c.guid.reset();
    EXPECT_EQ(qel_is_pair("manager-guid", "client-guid", &c), 0);
    EXPECT_EQ(take_log(), "3 Fatal: unkown client guid\n");
}
} // namespace
