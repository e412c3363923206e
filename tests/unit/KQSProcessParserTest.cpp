// The container-specific pieces of process listing.
#include "KQSProcessParser.h"

#include <gtest/gtest.h>

namespace {

using KQS::KQSProcessParser;

TEST(KQSProcessParserTest, ContainersAreAskedForVpidTheHostForPid)
{
    KQSProcessParser* parser = KQSProcessParser::instance();
    ASSERT_NE(parser, nullptr);
    EXPECT_EQ(parser, KQSProcessParser::instance());
    std::string container = parser->getStrParameters(KQSProcessParser::KQParserOptions(101, "", 0, false));
    std::string host = parser->getStrParameters(KQSProcessParser::KQParserOptions(0, "", 0, false));
    EXPECT_EQ(container.compare(0, 10, "vpid,veid,"), 0) << container;
    EXPECT_EQ(host.compare(0, 9, "pid,veid,"), 0) << host;
    EXPECT_EQ(container.find(",pid"), std::string::npos) << container;
}

} // namespace
