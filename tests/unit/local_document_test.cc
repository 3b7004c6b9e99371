#include "client/local_document.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

namespace {
TEST(LocalDocument, ExtremeNumbersAndLongListsAreWrittenInTheirWay)
{
    qel_t c;
    c.manager = std::make_unique<qel_manager>();
    c.manager->guid = "<&\">";
    c.manager->ip_list.assign(40, {inet_addr("192.168.100.100")});
    c.cdpsch_list.push_back({"l", "m", 1, 18446744073709551615u, 4294967295u});
    const std::string text = qel_to_xml(&c).value_or("");
    EXPECT_NE(text.find("<Client GUID=\"\" Alias=\"\"/><Manager GUID=\"&lt;&amp;&quot;&gt;\" IPs="),
              text.npos);
    EXPECT_NE(text.find("StartTime=\"18446744073709551615\" Timeout=\"-1\"/></Tessaron>\n"), text.npos);
    const std::unique_ptr<qel_t> read = xml_to_qel(text.c_str());
    ASSERT_TRUE(read);
    EXPECT_EQ(read->manager->ip_list.size(), 32u) << "more do not fit";
}
} // namespace
