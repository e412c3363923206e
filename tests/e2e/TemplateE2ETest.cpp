// Templates through the console on a simulated host: what the host and a
// container hold, installing and removing, and the results of refusals.
#include "E2EFixture.h"

#include <gtest/gtest.h>

namespace {

class TemplateE2ETest : public kqtest::SimulatedE2ETest {
protected:
    TemplateE2ETest() : SimulatedE2ETest({"101"}) {}
    // The listing as "name 'display name' type mark[b][c]..." lines.
    std::vector<std::string> listing(std::vector<std::string> args)
    {
        args.insert(args.begin(), {"template", "list"});
        const boost::json::object result = json(args).json();
        std::vector<std::string> lines;
        for (const auto& value : result.at("templates").as_array()) {
            const auto& item = value.as_object();
            lines.push_back(std::string(item.at("name").as_string()) + " '" +
                            std::string(item.at("display_name").as_string()) + "' " +
                            std::string(item.at("type").as_string()));
            for (const auto& version : item.at("versions").as_array())
                lines.back() += " " + std::string(version.at("mark").as_string()) +
                                (version.at("base").as_bool() ? "b" : "") + (version.at("cached").as_bool() ? "c" : "");
        }
        return lines;
    }
};

const std::string kOs = "simos-9-x86_64 'Simulated OS 9 (x86_64)' os 20260101bc";
const std::string kApp = "webstack 'Web stack' app 20260101";

} // namespace

TEST_F(TemplateE2ETest, ListingsOfTheHostAndAContainer)
{
    EXPECT_EQ((std::vector<std::string>{kOs, kApp}), listing({"host", "--type", "all"}));
    EXPECT_EQ((std::vector<std::string>{kApp}), listing({"--type", "app"}));
    EXPECT_EQ((std::vector<std::string>{kOs}), listing({"101"}));
    ASSERT_EQ(0, json({"template", "add", "101", "webstack", "--force"}).exitCode);
    EXPECT_EQ((std::vector<std::string>{kOs, kApp}), listing({"101"}));
    EXPECT_NE(std::string::npos, host.calls().find("[\"kqpkgadd\",\"--force\",\"-q\",\"101\",\"webstack\"]\n"));
}

TEST_F(TemplateE2ETest, RefusalsGiveTheirResults)
{
    ASSERT_EQ(0, host.kqsim("add 102 --ostemplate other-os"));
    struct Case {
        std::vector<std::string> args;
        int rc;
        const char* text;
    } cases[] = {
        {{"add", "101", "simos-9-x86_64"}, -5, "Use -f/--force option"},
        {{"add", "102", "webstack"}, -6, "failed dependencies"},
        {{"add", "101", "webstack/20260101"}, 0, ""},
        {{"add", "101", "webstack"}, -7, "already installed"},
        {{"add", "101", "nothing"}, -22, "not found"},
        {{"rm", "102", "webstack", "--remove"}, -23, "not installed"},
        {{"rm", "101", "webstack"}, 0, ""},
        {{"list", "999"}, 3804, ""},
    };
    for (const Case& c : cases) {
        std::vector<std::string> args = c.args;
        args.insert(args.begin(), "template");
        kqtest::RunResult run = json(args);
        boost::json::object result = run.json();
        EXPECT_EQ(c.rc, result.at("rc").as_int64()) << c.args[0] << " " << c.args[1] << run.err;
        EXPECT_NE(std::string::npos, std::string(result.at("error").as_string()).find(c.text)) << run.out;
        EXPECT_EQ(c.rc == 0 ? 0 : 1, run.exitCode);
    }
    const std::string calls = host.calls();
    EXPECT_EQ(2, json({"template", "add", "101", "webstack", "--remove"}).exitCode);
    EXPECT_EQ(2, json({"template", "list", "--type", "web"}).exitCode);
    EXPECT_EQ(calls, host.calls()) << "a malformed command runs nothing";
}
