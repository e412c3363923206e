// Hostile host files through the console: whatever sits where a file of one
// container is expected (a FIFO, a link to an endless device, a directory,
// a huge or garbage file, markup nested without end), listing neither
// crashes nor hangs, names the file, and still lists every other container.
#include "E2EFixture.h"

#include <gtest/gtest.h>

#include <ctime>
#include <map>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

// A hostile thing of each kind, made at $F by a shell command.
struct Hostile {
    const char* name;
    const char* make;
};

const Hostile kAllKinds[] = {
    {"nested markup", "python3 -c \"print('<a>' * 100000)\" > \"$F\""},
    {"link to /dev/zero", "ln -s /dev/zero \"$F\""},
    {"link to /dev/urandom", "ln -s /dev/urandom \"$F\""},
    {"FIFO", "mkfifo \"$F\""},
    {"directory", "mkdir \"$F\""},
    // Sparse: larger than any real file of ours without costing the disk.
    {"huge file", "truncate -s 64M \"$F\""},
    {"binary garbage", "head -c 4096 /dev/urandom > \"$F\""},
    {"empty file", ": > \"$F\""},
};

// An empty file is a container without settings, not a broken one.
bool isBroken(const Hostile& kind) { return std::string(kind.name) != "empty file"; }

void plant(const std::string& path, const Hostile& kind)
{
    ASSERT_EQ(0, kqtest::run("F='" + path + "'; rm -rf \"$F\" && " + kind.make)) << kind.name;
}

class HostileFilesE2ETest : public kqtest::SimulatedE2ETest {
protected:
    HostileFilesE2ETest() : SimulatedE2ETest({"101", "102"}) {}

    void SetUp() override
    {
        SimulatedE2ETest::SetUp();
        ASSERT_FALSE(HasFatalFailure());
        // The first run registers both containers: their agent files exist.
        kqtest::RunResult first = list();
        ASSERT_EQ(0, first.exitCode) << first.out << first.err;
        eids = listedEids(first);
        ASSERT_EQ(2u, eids.size()) << first.out;
    }

    // kqagent --json ARGS..., stopped when it hangs.
    kqtest::RunResult agent(const std::vector<std::string>& args)
    {
        std::vector<std::string> command = {"timeout", "60", std::string(KQ_BIN_DIR) + "/kqagent", "--root",
                                            host.root(), "--json"};
        command.insert(command.end(), args.begin(), args.end());
        return kqtest::runProgram(command);
    }
    kqtest::RunResult list() { return agent({"list"}); }

    // VEID -> EID of what a listing returned.
    std::map<long long, std::string> listedEids(const kqtest::RunResult& result)
    {
        std::map<long long, std::string> found;
        const boost::json::object answer = result.json();
        for (const auto& env : answer.at("envs").as_array())
            found[env.as_object().at("veid").as_int64()] = std::string(env.as_object().at("eid").as_string());
        return found;
    }

    std::map<long long, std::string> eids;
};

// What listing does with a broken file of container 101 in one place.
struct Place {
    const char* what;
    std::string relative;  // under the host root
    bool logged;           // the agent's log names the file, and so does "info 101"
    bool brokenOneListed;  // container 101 is still listed
};

TEST_F(HostileFilesE2ETest, EveryHostileFileIsThatContainersAndTheRestIsListed)
{
    const Place places[] = {
        // The registry registers a container whose agent file is unusable again.
        {"agent file", "etc/kqagent/configs/" + eids[101], false, true},
        {"container configuration", "etc/sysconfig/kq-scripts/101.conf", true, false},
        // A lock that cannot be read is no transition under way.
        {"transition lock", "kq/lock/101.lck", false, true},
        // A release file that cannot be read means no newer release.
        {"release file", "etc/zentravix-release", false, true},
    };
    const std::string pristine = host.root() + ".pristine";
    ASSERT_EQ(0, kqtest::run("cp -a '" + host.root() + "/.' '" + pristine + "'"));
    for (const Place& place : places) {
        for (const Hostile& kind : kAllKinds) {
            SCOPED_TRACE(std::string(place.what) + ": " + kind.name);
            ASSERT_EQ(0, kqtest::run("rm -rf '" + host.root() + "' && cp -a '" + pristine + "' '" + host.root() + "'"));
            const std::string path = host.path(place.relative);
            plant(path, kind);
            kqtest::RunResult result = list();
            ASSERT_EQ(0, result.exitCode) << result.out << result.err;
            ASSERT_EQ(1u, result.objects().size()) << result.out;
            const std::map<long long, std::string> listedNow = listedEids(result);
            EXPECT_EQ(1u, listedNow.count(102)) << result.out;
            const bool listed = listedNow.count(101) == 1;
            const bool broken = isBroken(kind);
            EXPECT_EQ(place.brokenOneListed || !broken, listed) << result.out;
            if (place.logged && broken) {
                const std::string log = kqtest::readFile(host.path("var/lib/kqagent/kqagent.log"));
                const size_t at = log.find("configuration of container 101: ");
                ASSERT_NE(std::string::npos, at) << log;
                EXPECT_NE(std::string::npos, log.substr(at, log.find('\n', at) - at).find(path)) << log;
                // Still registered: its agent file outlived the listing.
                EXPECT_TRUE(kqtest::exists(host.path("etc/kqagent/configs/" + eids[101])));
                kqtest::RunResult info = agent({"info", "101"});
                EXPECT_EQ(1, info.exitCode) << info.out;
                ASSERT_EQ(1u, info.objects().size()) << info.out;
                const std::string error(info.json().at("error").as_string());
                EXPECT_NE(std::string::npos, error.find(path)) << info.out;
            }
            // The original, or nothing where there was nothing (no lock).
            const std::string original = pristine + "/" + place.relative;
            ASSERT_EQ(0, kqtest::run("rm -rf '" + path + "' && { [ ! -e '" + original + "' ] || cp -a '" + original +
                                     "' '" + path + "'; }"));
            // Whole again: container 101 is back under the identity it had,
            // since a broken file is no reason to forget a container.
            kqtest::RunResult repaired = list();
            ASSERT_EQ(0, repaired.exitCode) << repaired.out << repaired.err;
            EXPECT_EQ(eids[101], listedEids(repaired)[101]) << repaired.out;
        }
    }
    ASSERT_EQ(0, kqtest::run("rm -rf '" + pristine + "'"));
}

TEST_F(HostileFilesE2ETest, BrokenHostSettingsFailTheListingAndAreNamed)
{
    for (const Hostile& kind : kAllKinds) {
        SCOPED_TRACE(kind.name);
        const std::string path = host.path("etc/sysconfig/kq");
        const std::string saved = kqtest::readFile(path);
        plant(path, kind);
        kqtest::RunResult result = list();
        ASSERT_TRUE(result.exitCode == 0 || result.exitCode == 1) << result.exitCode << result.err;
        ASSERT_EQ(1u, result.objects().size()) << result.out;
        // Every container's paths come from these settings: a broken file
        // fails the listing, and says which file it was.
        if (isBroken(kind)) {
            EXPECT_EQ(1, result.exitCode) << result.out;
            EXPECT_NE(std::string::npos, std::string(result.json().at("error").as_string()).find(path))
                << result.out;
        }
        ASSERT_EQ(0, kqtest::run("rm -rf '" + path + "'"));
        kqtest::writeFile(path, saved);
    }
}

TEST_F(HostileFilesE2ETest, StartRemovesStaleTemporariesOfOurNaming)
{
    const std::string folders[] = {"etc/kqagent/configs", "etc/sysconfig/kq-scripts", "var/lib/kqagent"};
    for (const std::string& folder : folders) {
        host.write(folder + "/x~tmpAb3xY9", "left by a killed writer");
        kqtest::setModificationTime(host.path(folder + "/x~tmpAb3xY9"), ::time(nullptr) - 120);
        host.write(folder + "/y~tmpAb3xY9", "a writer still at work");
    }
    kqtest::RunResult result = list();
    ASSERT_EQ(0, result.exitCode) << result.out;
    for (const std::string& folder : folders) {
        EXPECT_FALSE(kqtest::exists(host.path(folder + "/x~tmpAb3xY9"))) << folder;
        EXPECT_TRUE(kqtest::exists(host.path(folder + "/y~tmpAb3xY9"))) << folder;
    }
}

} // namespace
