#include "client/client.h"
#include "tests/unit/captured_log.h"

#include <gtest/gtest.h>

namespace {
void adopt(qel_t &c)
{
    c.guid = "client-guid";
    c.alias = "alias";
    c.manager = std::make_unique<qel_manager>();
    c.manager->guid = "manager-guid";
    c.manager->target_iqn = "iqn.2026-01.example:target";
    c.manager->ip_list = {{0x0100007f}, {0x0200007f}};
}

TEST(Client, AppointedManagerHasGuidAndAddressesButNoTarget)
{
    qel_t giver, c;
    adopt(giver);
    ASSERT_EQ(qel_mngr_appoint(giver.manager.get(), &c), 0);
    EXPECT_EQ(c.manager->guid, "manager-guid");
    EXPECT_EQ(c.manager->target_iqn, std::nullopt);
    ASSERT_EQ(c.manager->ip_list.size(), 2u);
    EXPECT_EQ(c.manager->ip_list.back().addr, 0x0200007fu);
}

TEST(Client, AppointingTheOwnManagerAgainSurvives)
{
    qel_t c;
    adopt(c);
    ASSERT_EQ(qel_mngr_appoint(c.manager.get(), &c), 0);
    EXPECT_EQ(c.manager->guid, "manager-guid");
    EXPECT_EQ(c.manager->ip_list.size(), 2u);
}

TEST(Client, RemovedManagerTakesTheAliasAlong)
{
    qel_t c;
    adopt(c);
    take_log();
    ASSERT_EQ(qel_mngr_remove(&c), 0);
    EXPECT_EQ(c.manager, nullptr);
    EXPECT_EQ(c.alias, std::nullopt);
    EXPECT_EQ(c.guid, "client-guid");
    ASSERT_EQ(qel_mngr_remove(&c), 0);
    EXPECT_EQ(take_log(LOG_INFO), "6 Delete manager 'manager-guid'\n6 Delete manager\n");
    EXPECT_EQ(qel_mngr_appoint(nullptr, nullptr), -1);
    EXPECT_EQ(take_log(), "3 Failed set manager, null pointer.\n");
}

TEST(Client, ProtectedMeansAManagerWithAGuid)
{
    qel_t c;
    EXPECT_EQ(qel_is_protected(&c), 0);
    adopt(c);
    EXPECT_EQ(qel_is_protected(&c), 1);
    c.manager->guid = "";
    EXPECT_EQ(qel_is_protected(&c), 0);
    c.manager->guid.reset();
    EXPECT_EQ(qel_is_protected(&c), 0);
    take_log();
    EXPECT_EQ(qel_is_protected(nullptr), -1);
    EXPECT_EQ(take_log(), "3 Fatal: unkown qel handle\n");
}

TEST(Client, PairNeedsBothGuidsExactly)
{
    qel_t c;
    take_log();
    EXPECT_EQ(qel_is_pair("manager-guid", "client-guid", &c), 0);
    EXPECT_EQ(qel_is_pair(nullptr, "client-guid", &c), 0);
    EXPECT_EQ(take_log(), "3 Fatal: unkown client guid\n3 Invalid input parameter\n");
    adopt(c);
    EXPECT_EQ(qel_is_pair("manager-guid", "client-guid", &c), 1);
    EXPECT_EQ(qel_is_pair("manager-guid", "Client-guid", &c), 0);
    EXPECT_EQ(qel_is_pair("client-guid", "manager-guid", &c), 0);
    c.manager->guid.reset();
    EXPECT_EQ(qel_is_pair("manager-guid", "client-guid", &c), 0);
    EXPECT_EQ(take_log(), "");
}
} // namespace
