// Templates through the console on a simulated host: what the host and a
// container hold, installing and removing, and the results of refusals.
#include "AgentRun.h"
#include "TempHost.h"

#include <gtest/gtest.h>

namespace {

class TemplateE2ETest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(0, host.simulated());
        ASSERT_EQ(0, host.kqsim("add 101"));
    }

    kqtest::RunResult json(std::vector<std::string> args)
    {
        args.insert(args.begin(), "--json");
        return kqtest::agent(host.root(), args);
    }

    // The listing as "name display type mark[b][c]..." lines.
    std::vector<std::string> listing(std::vector<std::string> args)
    {
        args.insert(args.begin(), {"template", "list"});
        kqtest::RunResult run = json(args);
        EXPECT_EQ(0, run.exitCode) << run.out << run.err;
        std::vector<std::string> lines;
        const boost::json::object result = run.json();
        if (!result.contains("templates"))
            return {"no listing: " + run.out};
        for (const auto& value : result.at("templates").as_array()) {
            const auto& item = value.as_object();
            std::string line = std::string(item.at("name").as_string()) + " '" +
                               std::string(item.at("display_name").as_string()) + "' " +
                               std::string(item.at("type").as_string());
            for (const auto& version : item.at("versions").as_array()) {
                const auto& v = version.as_object();
                line += " " + std::string(v.at("mark").as_string()) + (v.at("base").as_bool() ? "b" : "") +
                        (v.at("cached").as_bool() ? "c" : "");
            }
            lines.push_back(line);
        }
        return lines;
    }

    kqtest::TempHost host;
};

const std::string kOs = "simos-9-x86_64 'Simulated OS 9 (x86_64)' os 20260101bc";
const std::string kApp = "webstack 'Web stack' app 20260101";

} // namespace

TEST_F(TemplateE2ETest, HostListingShowsBothKinds)
{
    EXPECT_EQ((std::vector<std::string>{kOs, kApp}), listing({}));
    EXPECT_EQ((std::vector<std::string>{kOs, kApp}), listing({"host", "--type", "all"}));
    EXPECT_EQ((std::vector<std::string>{kOs}), listing({"--type", "os"}));
    EXPECT_EQ((std::vector<std::string>{kApp}), listing({"host", "--type", "app"}));
    EXPECT_EQ((std::vector<std::string>{kOs}), listing({"101"}));
}

TEST_F(TemplateE2ETest, InstallAndRemoveInAContainer)
{
    kqtest::RunResult added = json({"template", "add", "101", "webstack", "--force"});
    EXPECT_EQ(0, added.exitCode) << added.out << added.err;
    EXPECT_EQ((std::vector<std::string>{kOs, kApp}), listing({"101"}));
    EXPECT_EQ(0, json({"template", "rm", "101", "webstack/20260101", "--remove"}).exitCode);
    EXPECT_EQ((std::vector<std::string>{kOs}), listing({"101"}));
    const std::string calls = host.calls();
    EXPECT_NE(std::string::npos, calls.find("[\"kqpkgadd\",\"--force\",\"-q\",\"101\",\"webstack\"]\n")) << calls;
    EXPECT_NE(std::string::npos, calls.find("[\"kqpkgrm\",\"--remove\",\"-q\",\"101\",\"webstack/20260101\"]\n"))
        << calls;
}

TEST_F(TemplateE2ETest, RefusalsGiveTheirResults)
{
    ASSERT_EQ(0, host.kqsim("add 102 --ostemplate other-os"));
    struct Case {
        std::vector<std::string> args;
        int rc;
        const char* text;
    } cases[] = {
        {{"template", "add", "101", "simos-9-x86_64"}, -5, "Use -f/--force option"},
        {{"template", "add", "102", "webstack"}, -6, "failed dependencies"},
        {{"template", "add", "101", "webstack"}, 0, ""},
        {{"template", "add", "101", "webstack"}, -7, "already installed"},
        {{"template", "add", "101", "nothing"}, -22, "not found"},
        {{"template", "rm", "102", "webstack"}, -23, "not installed"},
        {{"template", "list", "999"}, 3804, ""},
    };
    for (const Case& c : cases) {
        kqtest::RunResult run = json(c.args);
        boost::json::object result = run.json();
        EXPECT_EQ(c.rc, result.at("rc").as_int64()) << c.args[1] << " " << c.args[3] << run.err;
        EXPECT_NE(std::string::npos, std::string(result.at("error").as_string()).find(c.text)) << run.out;
        EXPECT_EQ(c.rc == 0 ? 0 : 1, run.exitCode);
    }
}

TEST_F(TemplateE2ETest, UsageErrorsRunNothing)
{
    const std::vector<std::vector<std::string>> cases = {
        {"template"},
        {"template", "show"},
        {"template", "list", "--type", "web"},
        {"template", "add", "101"},
        {"template", "add", "101", "webstack", "--remove"},
        {"template", "rm", "101", "webstack", "--jump"},
        {"template", "add", "not-a-ct", "webstack"},
    };
    for (const auto& args : cases)
        EXPECT_EQ(2, json(args).exitCode) << args.back();
    EXPECT_EQ("", host.calls());
}
