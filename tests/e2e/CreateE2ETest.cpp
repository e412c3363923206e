// The second user journey on a simulated host: keep samples, create a
// container from one, change its settings, and read the result back both
// through the console and with bash.
#include "E2EFixture.h"

#include <gtest/gtest.h>

namespace {

const char kOsTemplate[] = "simos-9-x86_64";

class CreateE2ETest : public kqtest::SimulatedE2ETest {
protected:
    boost::json::object created(std::vector<std::string> args)
    {
        args.insert(args.begin(), {"create", "--ostemplate", kOsTemplate});
        kqtest::RunResult run = json(args);
        EXPECT_EQ(0, run.exitCode) << run.out << run.err;
        auto object = run.json();
        return object.count("env") ? object.at("env").as_object() : boost::json::object();
    }
    std::vector<std::string> sampleFiles()
    {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(host.path("etc/sysconfig/kq-scripts")))
            if (entry.path().filename().string().find("conf-sample") != std::string::npos)
                names.push_back(entry.path().filename().string());
        return names;
    }
    std::string lastCall()
    {
        std::string log = host.read("var/log/kqsim/calls.log");
        log.pop_back();
        return log.substr(log.rfind('\n') + 1);
    }
};

TEST_F(CreateE2ETest, CreatesAContainerThatListingAndBashAgreeOn)
{
    auto env = created({"--name", "web", "--ip", "10.0.0.5/24"});
    ASSERT_TRUE(env.count("veid"));
    const int veid = static_cast<int>(env.at("veid").as_int64());
    EXPECT_EQ("web", env.at("name").as_string());

    auto listed = json({"list"}).json().at("envs").as_array();
    ASSERT_EQ(1u, listed.size());
    EXPECT_EQ("web", listed[0].as_object().at("name").as_string());
    EXPECT_EQ("10.0.0.5/24", listed[0].as_object().at("addresses").as_array().at(0).as_string());
    EXPECT_EQ("web", kqtest::bashValue(confPath(veid), "NAME"));
    EXPECT_EQ("10.0.0.5/24", kqtest::bashValue(confPath(veid), "IP_ADDRESS"));
    EXPECT_EQ(std::vector<std::string>{"ve-basic.conf-sample"}, sampleFiles());
}

TEST_F(CreateE2ETest, SettingReportsTheChangeAndRunsTheToolOnce)
{
    created({"--veid", "101", "--name", "web", "--ip", "10.0.0.5/24"});
    kqtest::RunResult run = kqtest::agent(host.root(), {"set", "101", "--hostname", "h1", "--ip", "10.0.0.6/24"});
    ASSERT_EQ(0, run.exitCode) << run.err;
    EXPECT_NE(std::string::npos,
              run.err.find("Setting \"HOSTNAME\" to \"h1\", setting \"IP_ADDRESS\" to \"10.0.0.6/24\".\n"))
        << run.err;
    const std::string expected =
        "[\"kqctl\",\"set\",\"101\",\"--save\",\"--ipdel\",\"all\",\"--ipadd\",\"10.0.0.6/24\",\"--hostname\","
        "\"h1\",\"--applyconfig\",\"";
    EXPECT_EQ(expected, lastCall().substr(0, expected.size()));
    EXPECT_EQ("h1", kqtest::bashValue(confPath(101), "HOSTNAME"));
    EXPECT_EQ(std::vector<std::string>{"ve-basic.conf-sample"}, sampleFiles());

    run = kqtest::agent(host.root(), {"set", "101", "--hostname", "h1"});
    EXPECT_NE(std::string::npos, run.err.find("Nothing has changed.")) << run.err;
    json({"set", "101", "--unset", "iptables", "--unset", "hostname"});
    EXPECT_NE(std::string::npos, host.read("var/log/kqsim/calls.log").find(
                                     "[\"kqctl\",\"unset\",\"101\",\"--save\",\"--iptables\"]"));
}

TEST_F(CreateE2ETest, NamesAndDescriptionsComeBackByteForByte)
{
    const std::string texts[] = {"back\\slash", "both \"quotes' here", "$HOME and `date`", "tab\there",
                                 "UTF-8 \xc3\xbc\xe2\x82\xac", "Z#\\\",*"};
    int veid = 200;
    for (const std::string& text : texts) {
        created({"--veid", std::to_string(veid), "--name", text});
        ASSERT_EQ(0, json({"set", std::to_string(veid), "--description", text}).exitCode);
        auto env = json({"info", std::to_string(veid)}).json().at("env").as_object();
        EXPECT_EQ(text, env.at("name").as_string().c_str()) << text;
        EXPECT_EQ(text, env.at("description").as_string().c_str()) << text;
        ++veid;
    }
    ASSERT_EQ(0, host.kqsim("add 300 --name 'Z#\\\",*'"));
    EXPECT_EQ("Z#\\\",*", std::string(json({"info", "300"}).json().at("env").as_object().at("name").as_string()));
}

TEST_F(CreateE2ETest, APasswordNeverShowsInMessages)
{
    created({"--veid", "101"});
    ASSERT_EQ(0, json({"password", "101", "alice"}, "s3cret-word\n").exitCode);
    EXPECT_NE(std::string::npos, lastCall().find("\"alice:s3cret-word\""));

    ASSERT_EQ(0, host.kqsim("fault kqctl set 3 'no such user'"));
    kqtest::RunResult run = json({"password", "101", "bob"}, "s3cret-word\n");
    EXPECT_EQ(1, run.exitCode);
    EXPECT_EQ("kqctl set 101 userpassword for bob failed: no such user",
              std::string(run.json().at("error").as_string()));
    EXPECT_EQ(std::string::npos, (run.out + run.err).find("s3cret"));
}

TEST_F(CreateE2ETest, SamplesAreKeptAndContainersAreMadeFromThem)
{
    host.write("mine.conf", "NAME=\"mine\"\nHOSTNAME=\"from-sample\"\nOSTEMPLATE=\"simos-9-x86_64\"\n");
    kqtest::RunResult added = json({"sample", "add", host.path("mine.conf")});
    ASSERT_EQ(0, added.exitCode) << added.err;
    const std::string id(added.json().at("id").as_string());
    EXPECT_NE(std::string::npos, added.err.find("Adding template 'mine'"));

    auto samples = json({"sample", "list"}).json().at("samples").as_array();
    EXPECT_EQ(2u, samples.size());
    auto shown = json({"sample", "show", id}).json().at("samples").as_array().at(0).as_object();
    EXPECT_EQ("mine", shown.at("name").as_string());

    kqtest::RunResult run = json({"create", "--veid", "101", "--sample", id});
    ASSERT_EQ(0, run.exitCode) << run.out << run.err;
    auto env = run.json().at("env").as_object();
    EXPECT_EQ("from-sample", env.at("hostname").as_string());
    EXPECT_EQ("mine", env.at("origin_sample").as_string());

    const std::string cloned(json({"sample", "clone", id}).json().at("id").as_string());
    const std::string fromCt(json({"sample", "from", "101"}).json().at("id").as_string());
    EXPECT_EQ(4u, json({"sample", "list"}).json().at("samples").as_array().size());
    EXPECT_EQ("from-sample", kqtest::bashValue(host.path("etc/sysconfig/kq-scripts/ve-mine_1.conf-sample"), "HOSTNAME"));

    host.write("other.conf", "HOSTNAME=\"replaced\"\n");
    ASSERT_EQ(0, json({"sample", "set", id, host.path("other.conf")}).exitCode);
    EXPECT_EQ("replaced", kqtest::bashValue(host.path("etc/sysconfig/kq-scripts/ve-Anonymous_template.conf-sample"),
                                            "HOSTNAME"));

    ASSERT_EQ(0, json({"sample", "del", cloned, fromCt}).exitCode);
    EXPECT_EQ(2u, json({"sample", "list"}).json().at("samples").as_array().size());
    kqtest::RunResult missing = json({"sample", "del", cloned});
    EXPECT_EQ(1, missing.exitCode);
    EXPECT_EQ("Can't find the following templates: " + cloned, std::string(missing.json().at("error").as_string()));
}

TEST_F(CreateE2ETest, SettingFromASampleTakesOnlyWhatWasChosen)
{
    created({"--veid", "101", "--name", "web", "--hostname", "before"});
    host.write("net.conf", "NAME=\"net\"\nHOSTNAME=\"after\"\nDESCRIPTION=\"not chosen\"\nDISKSPACE=\"500:600\"\n");
    const std::string id(json({"sample", "add", host.path("net.conf")}).json().at("id").as_string());

    struct Case {
        std::vector<std::string> choice;
        int rc;
        const char* hostname;
        const char* error;
    } cases[] = {
        {{"--param", "nosuch"}, -1, "before", "no applicable sample parameters found in 'net'"},
        {{"--category", "paths"}, -1, "before", "no applicable sample parameters found in 'net'"},
        {{"--category", "network"}, 0, "after", ""},
        {{"--param", "diskspace"}, 0, "after", ""},
    };
    for (const Case& c : cases) {
        std::vector<std::string> line = {"set", "101", "--sample", id};
        line.insert(line.end(), c.choice.begin(), c.choice.end());
        kqtest::RunResult run = json(line);
        EXPECT_EQ(c.rc, run.json().at("rc").as_int64()) << c.choice[1] << run.err;
        EXPECT_EQ(c.error, std::string(run.json().at("error").as_string())) << c.choice[1];
        EXPECT_EQ(c.hostname, kqtest::bashValue(confPath(101), "HOSTNAME")) << c.choice[1];
    }
    EXPECT_EQ("", kqtest::bashValue(confPath(101), "DESCRIPTION"));
    EXPECT_EQ("500:600", kqtest::bashValue(confPath(101), "DISKSPACE"));
    EXPECT_EQ("net", kqtest::bashValue(confPath(101), "ORIGIN_SAMPLE"));
}

TEST_F(CreateE2ETest, AListingInTheSameBatchSeesTheNewState)
{
    kqtest::RunResult run = json({"batch"}, "create --veid 101 --ostemplate simos-9-x86_64 --name first\n"
                                            "list\n"
                                            "set 101 --name second\n"
                                            "list\n");
    ASSERT_EQ(0, run.exitCode) << run.err;
    auto objects = run.objects();
    ASSERT_EQ(4u, objects.size());
    EXPECT_EQ("first", objects[1].at("envs").as_array().at(0).as_object().at("name").as_string());
    EXPECT_EQ("second", objects[3].at("envs").as_array().at(0).as_object().at("name").as_string());
}

} // namespace
