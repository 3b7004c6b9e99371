#include "client/addresses.h"
#include "client/local_document.h"
#include "tests/unit/captured_log.h"

#include <gtest/gtest.h>

namespace {
in_addr_t address(const char *text)
{
    return inet_addr(text);
}

TEST(LocalDocument, AdoptedClientIsWrittenWithoutIndentation)
{
    qel_t c;
    c.guid = "client";
    c.manager = std::make_unique<qel_manager>();
    c.manager->guid = "<&\">";
    c.manager->ip_list = {{address("10.0.0.1")}, {address("10.0.0.2")}};
    c.group_list.emplace_back().name = "not shown";
    c.cdpsch_list.push_back({"local", "mirror", 1, 18446744073709551615u, 4294967295u});
    EXPECT_EQ(qel_to_xml(&c), "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
                              "<Tessaron><Client GUID=\"client\" Alias=\"\"/>"
                              "<Manager GUID=\"&lt;&amp;&quot;&gt;\" IPs=\"10.0.0.1 10.0.0.2\"/>"
                              "<CDPSchedule Local=\"local\" Mirror=\"mirror\" "
                              "StartTime=\"18446744073709551615\" Timeout=\"-1\"/></Tessaron>\n");
    EXPECT_EQ(qel_to_xml(nullptr), std::nullopt);
}

TEST(LocalDocument, LongAddressListIsCutAfterThirtyTwoLongAddresses)
{
    qel_t c;
    c.manager = std::make_unique<qel_manager>();
    c.manager->ip_list.assign(40, {address("192.168.100.100")});
    const std::unique_ptr<qel_t> read = xml_to_qel(qel_to_xml(&c)->c_str());
    ASSERT_TRUE(read);
    EXPECT_EQ(read->manager->ip_list.size(), 32u);
}

TEST(LocalDocument, WhatIsIncompleteIsLeftOut)
{
    const std::unique_ptr<qel_t> c = xml_to_qel(
        "<Tessaron> <Client GUID='g' Alias=''/> <Manager GUID='m' IPs='10.0.0.1  nonsense'/> <Other/>"
        "<CDPSchedule Local='l' Mirror='m' StartTime='12x'/>"
        "<CDPSchedule Local='l' Mirror='m' StartTime='12x' Timeout='30'/></Tessaron>");
    ASSERT_TRUE(c);
    EXPECT_EQ(c->guid, "g");
    EXPECT_EQ(c->alias, std::nullopt);
    EXPECT_EQ(join_addresses(c->manager->ip_list), "10.0.0.1 0.0.0.0");
    ASSERT_EQ(c->cdpsch_list.size(), 1u);
    EXPECT_EQ(c->cdpsch_list.front().cdp_start_time, 12u);
    EXPECT_EQ(c->cdpsch_list.front().cdp_timeout, 30u);
}

TEST(LocalDocument, AliasWithoutGuidIsIgnoredAndTheManagerIsThereButEmpty)
{
    const std::unique_ptr<qel_t> c = xml_to_qel("<Tessaron><Client Alias='a'/></Tessaron>");
    ASSERT_TRUE(c);
    EXPECT_EQ(c->alias, std::nullopt);
    ASSERT_TRUE(c->manager);
    EXPECT_EQ(c->manager->guid, std::nullopt);
}

TEST(LocalDocument, TextThatIsNoSuchDocumentGivesNothing)
{
    take_log();
    EXPECT_EQ(xml_to_qel(nullptr), nullptr);
    EXPECT_EQ(take_log(), "");
    EXPECT_EQ(xml_to_qel("<Tessaron>"), nullptr);
    EXPECT_EQ(xml_to_qel("<Other/>"), nullptr);
    EXPECT_EQ(take_log(), "3 Failed to parse xml document\n3 Error: xml's root node must be 'Tessaron'\n");
}
} // namespace
