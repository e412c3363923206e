// The console on simulated hosts: its command line, its output forms and
// its refusal of malformed commands.
#include "E2EFixture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>

namespace {

class ConsoleE2ETest : public kqtest::SimulatedE2ETest {
protected:
    void add(const std::string& args) { ASSERT_EQ(0, host.kqsim("add " + args)) << args; }
    // The four containers the expected JSON below was taken from.
    void addFixedContainers()
    {
        add("102 --state running --name beta --hostname b.example --ip 10.0.0.3/24");
        add("101 --state stopped --name alpha --ip 10.0.0.2/24 "
            "--netif name=eth0,mac=00:11:22:33:44:55,ip=10.1.0.2/24,dhcp=no,gw=10.1.0.1,ns=8.8.8.8");
        add("103 --state mounted");
        add("104 --state suspended --layout 4 --name gamma");
    }
};

std::string replaceAll(std::string text, const std::string& from, const std::string& to)
{
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
    return text;
}

// One character per code point (enough for the two-byte ones used here).
std::u32string codePoints(const std::string& text)
{
    std::u32string result;
    for (size_t i = 0; i < text.size(); ++i) {
        unsigned char c = static_cast<unsigned char>(text[i]);
        if (c >= 0xC0 && i + 1 < text.size())
            result += static_cast<char32_t>(((c & 0x1F) << 6) | (static_cast<unsigned char>(text[++i]) & 0x3F));
        else
            result += static_cast<char32_t>(c);
    }
    return result;
}

} // namespace

// An empty host: one JSON object for the listing, the registry's answer for
// an unknown VEID, and two consoles allocating different VEIDs.
TEST_F(ConsoleE2ETest, AnEmptyHostListsRefusesAndAllocates)
{
    kqtest::RunResult run = json({"list"});
    ASSERT_EQ(0, run.exitCode) << run.err;
    EXPECT_EQ("{\"rc\":0,\"error\":\"\",\"envs\":[]}\n", run.out);

    kqtest::RunResult unknown = json({"start", "4242"});
    EXPECT_EQ(1, unknown.exitCode);
    EXPECT_EQ(3804, unknown.json().at("rc").as_int64());
    EXPECT_EQ("eid for ctid#4242 not found", unknown.json().at("error").as_string());

    kqtest::RunResult first = json({"veid", "allocate"});
    kqtest::RunResult second = json({"veid", "allocate"});
    ASSERT_EQ(0, first.exitCode) << first.err;
    ASSERT_EQ(0, second.exitCode) << second.err;
    EXPECT_NE(first.json().at("veid").as_int64(), second.json().at("veid").as_int64());
}

TEST_F(ConsoleE2ETest, MalformedCommandsExitTwoAndRunNothing)
{
    for (std::vector<std::string> args : {
             std::vector<std::string>{"--json", "lisst"}, {"--json"}, {"start"}, {"start", "abc"},
             {"start", "101", "extra"}, {"stop", "101", "--slow"}, {"info", "101", "--mask", "zz"},
             {"info", "101", "--mask"}, {"--deny", "4x", "list"}, {"--bogus", "list"}, {"veid"},
             {"veid", "free"}, {"batch", "now"}, {"start", "99999999999"}, {"list", "--state"},
             {"list", "--state", "6", "7"}, {"list", "--json"}, {"private", "get", "101"},
             {"private", "put"}, {"config"}, {"config", "native"}, {"config", "virtual", "/nonexistent"},
             {"mount"}, {"sync", "now"}, {"--root"}, {"start", "{nonsense}"}, {"li\nst"}, {"start", "1\n2"},
             // Settings that cannot be, and automatic addresses anywhere but
             // on an adapter of a new container.
             {"create", "--ip", "10.0.0.300/24"}, {"create", "--netif", "name=eth0", "--netif", "name=eth0"},
             {"create", "--netif", "mac=00:11:22:33:44:55"}, {"create", "--sample", "basic"},
             {"set", "101", "--category", "net"}, {"sample", "show", "not-a-guid"}, {"password", "x", "root"},
             {"set", "101", "--ip", "auto"}, {"set", "101", "--netif", "name=eth0,ip=auto"},
             {"create", "--ostemplate", "simos-9-x86_64", "--ip", "auto", "--netif", "name=eth0"},
             {"create", "--ostemplate", "simos-9-x86_64", "--ip", "automatic"}}) {
        kqtest::RunResult run = kqtest::agent(host.root(), args);
        std::string line = args.empty() ? "" : args.back();
        EXPECT_EQ(2, run.exitCode) << line;
        EXPECT_EQ(0u, run.err.find("kqagent: usage: ")) << run.err;
        EXPECT_EQ(1u, std::count(run.err.begin(), run.err.end(), '\n')) << "one line: " << run.err;
        EXPECT_EQ("", run.out) << line;
    }
    EXPECT_EQ("", host.calls()) << "no tool ran";
}

TEST_F(ConsoleE2ETest, HelpPrintsTheSynopsesAndRunsNothing)
{
    const std::vector<std::pair<std::vector<std::string>, std::vector<std::string>>> cases = {
        {{"--help"}, {"kqagent [--root DIR] [--json] [--deny RIGHTS] [--plugin PATH] [-v] COMMAND [ARGS...]", "kqagent list [--state N]...", "kqagent veid allocate",
                      "kqagent private put CT NAME", "kqagent config native CT", "kqagent batch"}},
        {{"info", "--help"}, {"kqagent info CT [--mask M]"}},
        {{"stop", "-h"}, {"kqagent stop CT [--fast]"}},
        {{"veid", "--help"}, {"kqagent veid allocate"}},
        {{"private", "get", "--help"}, {"kqagent private get CT NAME"}},
    };
    for (const auto& each : cases) {
        kqtest::RunResult run = kqtest::agent(host.root(), each.first);
        EXPECT_EQ(0, run.exitCode) << each.first.front() << run.err;
        for (const auto& synopsis : each.second)
            EXPECT_NE(std::string::npos, run.out.find(synopsis + "\n")) << synopsis << " in " << run.out;
    }
    kqtest::RunResult info = kqtest::agent(host.root(), {"info", "--help"});
    EXPECT_EQ(std::string::npos, info.out.find("kqagent list")) << "only the command asked about";
    EXPECT_EQ("", host.calls());
}

TEST_F(ConsoleE2ETest, BatchRunsEveryLineInOneProcess)
{
    kqtest::RunResult run = json({"batch"},
                                          "# a comment\n\nlist\n  list --state 6\nlist --state 'x\n"
                                          "list --state zz\nveid\nlist --help\nbatch\n");
    EXPECT_EQ(1, run.exitCode) << "malformed lines";
    auto objects = run.objects();
    ASSERT_EQ(7u, objects.size()) << run.out;
    for (size_t i = 0; i < objects.size(); ++i) {
        EXPECT_EQ(i < 2 ? 0 : 2, objects[i].at("rc").as_int64()) << i;
        if (i >= 2) {
            EXPECT_EQ(0u, std::string(objects[i].at("error").as_string()).find("usage: ")) << i;
        }
    }

    kqtest::RunResult good = json({"batch"}, "list\nlist\n");
    EXPECT_EQ(0, good.exitCode);
    EXPECT_EQ(2u, good.objects().size());
}

TEST_F(ConsoleE2ETest, JsonBytesOfAFixedHost)
{
    addFixedContainers();
    // Taken from the console before its output was reworked (with the
    // host-routed adapter every container has since); only EIDs and the host
    // root differ from run to run.
    const std::map<int64_t, std::string> expected = {
        {101, R"({"eid":"@EID@","veid":101,"name":"alpha","architecture":"x86_64","origin_sample":"basic","os":{"f1":"Linux","f2":"simos-9-x86_64","f3":"","f4":"6.18.44-fc-v669"},"ostemplate":"simos-9-x86_64","addresses":["10.1.0.2/24","10.0.0.2/24"],"nameservers":["192.0.2.53"],"searchdomains":["sim.test"],"veths":[{"name":"eth0","mac":"00:11:22:33:44:55","addresses":["10.1.0.2/24"],"dhcp":false,"dhcp6":false,"gateway":"10.1.0.1","nameservers":["8.8.8.8"],"host_routed":false,"status":0},{"name":"venet0","addresses":["10.0.0.2/24"],"dhcp":false,"dhcp6":false,"nameservers":[],"host_routed":true,"status":0}],"onboot":false,"ve_root":"@ROOT@/kq/root/101","ve_private":"@ROOT@/kq/private/101","qos":[{"id":"diskinodes","barrier":200000,"limit":220000},{"id":"diskspace","barrier":1048576,"limit":1153434}],"state":3,"transition":0,"type":"corvantis"})"},
        {102, R"({"eid":"@EID@","veid":102,"name":"beta","hostname":"b.example","architecture":"x86_64","origin_sample":"basic","os":{"f1":"Linux","f2":"simos-9-x86_64","f3":"","f4":"6.18.44-fc-v669"},"ostemplate":"simos-9-x86_64","addresses":["10.0.0.3/24"],"nameservers":["192.0.2.53"],"searchdomains":["sim.test"],"veths":[{"name":"venet0","addresses":["10.0.0.3/24"],"dhcp":false,"dhcp6":false,"nameservers":[],"host_routed":true,"status":2}],"onboot":false,"ve_root":"@ROOT@/kq/root/102","ve_private":"@ROOT@/kq/private/102","qos":[{"id":"diskinodes","barrier":200000,"limit":220000},{"id":"diskspace","barrier":1048576,"limit":1153434}],"state":6,"transition":0,"type":"corvantis"})"},
        {103, R"({"eid":"@EID@","veid":103,"architecture":"x86_64","origin_sample":"basic","os":{"f1":"Linux","f2":"simos-9-x86_64","f3":"","f4":"6.18.44-fc-v669"},"ostemplate":"simos-9-x86_64","nameservers":["192.0.2.53"],"searchdomains":["sim.test"],"veths":[{"name":"venet0","addresses":[],"dhcp":false,"dhcp6":false,"nameservers":[],"host_routed":true,"status":0}],"onboot":false,"ve_root":"@ROOT@/kq/root/103","ve_private":"@ROOT@/kq/private/103","qos":[{"id":"diskinodes","barrier":200000,"limit":220000},{"id":"diskspace","barrier":1048576,"limit":1153434}],"state":4,"transition":0,"type":"corvantis"})"},
        {104, R"({"eid":"@EID@","veid":104,"name":"gamma","architecture":"x86_64","origin_sample":"basic","os":{"f1":"Linux","f2":"simos-9-x86_64","f3":"","f4":"6.18.44-fc-v669"},"ostemplate":"simos-9-x86_64","nameservers":["192.0.2.53"],"searchdomains":["sim.test"],"veths":[{"name":"venet0","addresses":[],"dhcp":false,"dhcp6":false,"nameservers":[],"host_routed":true,"status":0}],"onboot":false,"ve_root":"@ROOT@/kq/root/104","ve_private":"@ROOT@/kq/private/104","qos":[{"id":"diskinodes","barrier":200000,"limit":220000},{"id":"diskspace","barrier":1048576,"limit":1153434}],"state":5,"transition":0,"type":"corvantis"})"},
    };
    auto envText = [&](const boost::json::value& env) {
        std::string text = expected.at(env.at("veid").as_int64());
        text = replaceAll(text, "@EID@", std::string(env.at("eid").as_string()));
        return replaceAll(text, "@ROOT@", host.root());
    };
    for (const char* command : {"list", "sync"}) {
        kqtest::RunResult run = json({command});
        ASSERT_EQ(0, run.exitCode) << run.err;
        std::string want = "{\"rc\":0,\"error\":\"\",\"envs\":[";
        boost::json::object result = run.json();
        const auto& envs = result.at("envs").as_array();
        for (size_t i = 0; i < envs.size(); ++i)
            want += (i ? "," : "") + envText(envs[i]);
        EXPECT_EQ(want + "]}\n", run.out) << command;
    }
    kqtest::RunResult info = json({"info", "101"});
    EXPECT_EQ("{\"rc\":0,\"error\":\"\",\"env\":" + envText(info.json().at("env")) + "}\n", info.out);
}

TEST_F(ConsoleE2ETest, JsonStaysValidForAnyBytes)
{
    // Bytes that are no UTF-8 come back as \u0080..\u00ff escapes of the
    // byte; the same characters written properly stay as they are.
    add("101 --state running --name a\xff\xc3\xa9\xed\xa0\x80z");
    kqtest::RunResult list = json({"list"});
    ASSERT_EQ(0, list.exitCode) << list.err;
    EXPECT_NE(std::string::npos, list.out.find(R"("name":"a\u00ffé\u00ed\u00a0\u0080z")")) << list.out;
    EXPECT_EQ("a\xc3\xbf\xc3\xa9\xc3\xad\xc2\xa0\xc2\x80z",
              list.json().at("envs").as_array().at(0).at("name").as_string());

    const std::string data("\x80\x01\"\\\n\x00ok\xf4\x90\x80\x80", 12);
    ASSERT_EQ(0, kqtest::agent(host.root(), {"private", "put", "101", "note"}, data).exitCode);
    kqtest::RunResult get = json({"private", "get", "101", "note"});
    EXPECT_EQ(R"({"rc":0,"error":"","data":"\u0080\u0001\"\\\n\u0000ok\u00f4\u0090\u0080\u0080"})"
              "\n",
              get.out);

    kqtest::RunResult echoed = json({"batch"}, "info \xfe\n");
    EXPECT_EQ(2, echoed.json().at("rc").as_int64()) << echoed.out;
}

TEST_F(ConsoleE2ETest, ReadableTableInVeidOrderWithWords)
{
    addFixedContainers();
    add("99 --state running --name \xc3\xa9t\xc3\xa9-and-a-rather-long-name --hostname h");
    // A live holder (this test) starting container 103.
    std::string pid = std::to_string(::getpid());
    host.write("kq/lock/103.lck", pid + "\nstarting");
    host.write("proc/" + pid + "/status", "");
    kqtest::RunResult run = kqtest::agent(host.root(), {"list"});
    ASSERT_EQ(0, run.exitCode) << run.err;
    auto rows = kqtest::lines(run.out);
    ASSERT_EQ(6u, rows.size()) << run.out;
    const std::vector<std::vector<std::string>> want = {
        {"VEID", "STATE", "TRANSITION", "NAME", "HOSTNAME", "ADDRESS", "EID"},
        {"99", "running", "", "\xc3\xa9t\xc3\xa9-and-a-rather-long-name", "h", "", "{"},
        {"101", "stopped", "", "alpha", "", "10.1.0.2/24", "{"},
        {"102", "running", "", "beta", "b.example", "10.0.0.3/24", "{"},
        {"103", "mounted", "starting", "", "", "", "{"},
        {"104", "suspended", "", "gamma", "", "", "{"},
    };
    // Cut every row where the header's columns start: cells line up.
    std::vector<size_t> starts;
    std::u32string header = codePoints(rows[0]);
    for (const auto& title : want[0])
        starts.push_back(header.find(codePoints(title), starts.empty() ? 0 : starts.back() + 1));
    for (size_t row = 0; row < want.size(); ++row) {
        std::u32string line = codePoints(rows[row]);
        for (size_t cell = 0; cell < starts.size(); ++cell) {
            size_t end = cell + 1 < starts.size() ? starts[cell + 1] : line.size();
            std::u32string text = line.substr(starts[cell], end - starts[cell]);
            text.erase(text.find_last_not_of(U' ') + 1);
            std::u32string expected = codePoints(want[row][cell]);
            if (cell == 6 && row > 0)
                EXPECT_EQ(expected, text.substr(0, 1)) << rows[row];
            else
                EXPECT_EQ(expected, text) << rows[row] << " cell " << cell;
        }
    }
}

TEST_F(ConsoleE2ETest, AMissingRootOrPluginIsReported)
{
    struct Case {
        std::string root;
        std::vector<std::string> args;
        const char* message;
    };
    for (const Case& each : std::vector<Case>{
             {host.path("missing"), {"list"}, "host root"},
             {host.root(), {"--plugin", host.path("none.so"), "list"}, "can't load plug-in"},
             {host.root(), {"--plugin", host.path("etc/kqsim/faults"), "list"}, "can't load plug-in"}}) {
        for (bool json : {false, true}) {
            std::vector<std::string> args = each.args;
            if (json)
                args.insert(args.begin(), "--json");
            kqtest::RunResult run = kqtest::agent(each.root, args);
            EXPECT_EQ(1, run.exitCode) << each.message;
            EXPECT_NE(std::string::npos, run.err.find(each.message)) << run.err;
            if (!json) {
                EXPECT_EQ("", run.out);
                continue;
            }
            boost::json::object result = run.json();
            ASSERT_FALSE(result.empty()) << run.out;
            EXPECT_EQ(1, result.at("rc").as_int64());
            EXPECT_NE(std::string::npos, std::string(result.at("error").as_string()).find(each.message));
        }
    }
}
