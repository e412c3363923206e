// The framework's process parser: splitting tool output into records and
// the filter, order and limit of a query.
#include "KQC/ProcessParser.h"

#include <gtest/gtest.h>

namespace {

using KQC::KQCProcessList;
using KQC::KQCProcessParser;

std::string attribute(const KQC::KQCProcessInfo& process, const std::string& name)
{
    std::string value;
    return process.get(name, value) == 0 ? value : "<none>";
}

class ThreeColumns : public KQCProcessParser {
public:
    std::string getStrParameters(const ParserOptions&) override { return "pid,stat,args"; }
};

TEST(ProcessParserTest, LinesBecomeRecordsAndTheLastColumnKeepsItsBlanks)
{
    ThreeColumns parser;
    KQCProcessList list;
    KQCProcessParser::ParserOptions options("", 0, false);
    ASSERT_EQ(parser.fillProcessList("  1 S /sbin/init splash  \n"
                                     "\n"
                                     "2 S\n"
                                     "garbage\n"
                                     "3\tR\tbash -c 'x  y'",
                                     list, options),
              0);
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(attribute(list[0], "pid"), "1");
    EXPECT_EQ(attribute(list[0], "args"), "/sbin/init splash");
    EXPECT_EQ(attribute(list[1], "stat"), "R");
    EXPECT_EQ(attribute(list[1], "args"), "bash -c 'x  y'");
}

TEST(ProcessParserTest, OptionsFilterOrderAndLimit)
{
    const struct {
        const char* text;
        int number;
        bool flag;
        const char* pids;
    } cases[] = {
        {"", 0, false, "2 10 33"}, {"", 0, true, "33 10 2"}, {"", 2, false, "2 10"},
        {"httpd", 0, false, "10 33"}, {"httpd", 1, true, "33"}, {"nothing", 0, false, ""},
    };
    for (const auto& c : cases) {
        KQCProcessList list(3);
        list[0].set("pid", "10"), list[0].set("args", "httpd -k");
        list[1].set("pid", "2"), list[1].set("args", "init");
        list[2].set("pid", "33"), list[2].set("args", "/usr/sbin/httpd");
        KQCProcessParser::ParserOptions options(c.text, c.number, c.flag);
        ASSERT_EQ(KQCProcessParser::optimizeProcesses(list, options), 0);
        std::string pids;
        for (const auto& process : list)
            pids += (pids.empty() ? "" : " ") + attribute(process, "pid");
        EXPECT_EQ(pids, c.pids) << c.text << " " << c.number << " " << c.flag;
    }
}

TEST(ProcessParserTest, OnlyKnownColumnSetsInitialise)
{
    KQCProcessParser parser;
    EXPECT_FALSE(parser.isValid());
    EXPECT_EQ(parser.initialize("no such set"), -1);
    EXPECT_FALSE(parser.isValid());
    ASSERT_EQ(parser.initialize("kq_ps"), 0);
    EXPECT_EQ(parser.getColumns().front(), "pid");
    EXPECT_EQ(parser.getColumns().back(), "args");
}

} // namespace
