// The template manager: listing the host's and a container's templates,
// installing and removing them through the simulated package tools, and
// recognising template packages built with the real package tools.
#include "KQSEnvMLocal.h"
#include "KQSTEMLocal.h"

#include "PreloadedRun.h"
#include "TempHost.h"

#include "KQC/EnvCache.h"
#include "KQC/Error.h"

#include <gtest/gtest.h>

#include <cstring>

using KQS::KQSTEMLocal;

TEST(KQSTEMLocalTest, TemplateConfigurationPaths)
{
    struct PathCase {
        const char* path;
        bool matches;
    } paths[] = {
        {"/kq/template/web/conf/web.conf.20260101", true},
        {"/kq/template/web/conf", false},
        {"/kq/template//conf/web.conf", false},
        {"/kq/template/conf/web.conf", false},
        {"kq/template/web/conf/x", false},
        {"/usr/share/kq/template/web/conf/x", false},
    };
    for (const PathCase& c : paths)
        EXPECT_EQ(c.matches, KQSTEMLocal::isTemplateConfPath(c.path)) << c.path;
}

namespace {

// The listing as "name 'display name' type mark[b][c]..." lines.
std::vector<std::string> describe(const std::vector<KQS::KQSPackageInfo>& list)
{
    std::vector<std::string> lines;
    for (const KQS::KQSPackageInfo& info : list) {
        lines.push_back(info.name + " '" + info.displayName + "' " + info.type);
        for (const KQS::KQSPackageVersion& v : info.versions)
            lines.back() += " " + v.versionMark + (v.baseVersion ? "b" : "") + (v.cached ? "c" : "");
    }
    return lines;
}

// A simulated host with container 101 known to the environment cache. Each
// test runs in a fresh process: the templates folder is read once per process.
class KQSTEMLocalHostTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!kqtest::isPreloadedChild())
            return;
        ASSERT_EQ(0, host.simulated());
        ASSERT_EQ(0, host.kqsim("add 101"));
        // Registered as the plug-in's start does; the calls log starts empty.
        KQS::KQSEnvMLocal envM{KQC::KQCAccessProvider()};
        KQC::KQCEnvVector envs;
        ASSERT_EQ(0, envM.getInfoEx(KQC::KQCEIDSet(), envs, 0xffffffff, true)) << KQC::getErrorMessage();
        for (const auto& env : envs) {
            KQC::envCache()->insert(*env);
            if (env->getEID() != KQC::KQCEID::EID_LOCAL)
                ct = env->getEID();
        }
        ASSERT_TRUE(ct.isValid());
        host.write("var/log/kqsim/calls.log", "");
    }
    std::vector<std::string> list(const KQC::KQCEID& eid, int type, int expected = 0)
    {
        std::vector<KQS::KQSPackageInfo> out;
        EXPECT_EQ(expected, manager.ls(out, eid, type)) << KQC::getErrorMessage();
        return describe(out);
    }
    void addVersion(const std::string& name, const std::string& version, const std::string& text)
    {
        host.write("kq/template/" + name + "/conf/" + name + ".conf." + version, text);
    }

    kqtest::TempHost host;
    KQC::KQCEID ct;
    KQSTEMLocal manager{KQC::KQCAccessProvider()};
};

const KQC::KQCEID& hostEid() { return KQC::KQCEID::EID_LOCAL; }

} // namespace

TEST_F(KQSTEMLocalHostTest, LowestVersionNamesTheTemplateAndCacheFilesDecideCached)
{
    if (kqtest::ranInPreloadedChild())
        return;
    addVersion("webstack", "20250101", "%name\nOld web\n%cached\nyes\n%basedir\nwebstack\n%version\nhttpd\n");
    addVersion("webstack", "20270101", "%name\nNew web\n%basedir\nwebstack\n%version\nhttpd\n");
    ASSERT_EQ(0, kqtest::run("rm '" + host.path("kq/template/simos-9-x86_64-20260101.tar.gz") + "'"));
    EXPECT_EQ((std::vector<std::string>{"simos-9-x86_64 'Simulated OS 9 (x86_64)' os 20260101b",
                                        "webstack 'Old web' os 20250101 20260101 20270101"}),
              list(hostEid(), 3));
}

TEST_F(KQSTEMLocalHostTest, ListingFailures)
{
    if (kqtest::ranInPreloadedChild())
        return;
    addVersion("zzz", "20260101", "no sections at all");
    std::vector<KQS::KQSPackageInfo> out;
    EXPECT_EQ(-51, manager.ls(out, hostEid(), 3));
    EXPECT_EQ(2u, out.size()) << "templates listed before the broken one stay";

    host.write("etc/kqsim/faults", "kqpkgls * 3 broken\n");
    out.clear();
    EXPECT_EQ(-3, manager.ls(out, hostEid(), 3));
    EXPECT_TRUE(out.empty());
}

TEST_F(KQSTEMLocalHostTest, ListingWithoutTemplatesFolder)
{
    if (kqtest::ranInPreloadedChild())
        return;
    host.write("etc/sysconfig/kq", "VE_ROOT=\"/x/$VEID\"\n");
    std::vector<KQS::KQSPackageInfo> out;
    EXPECT_EQ(-3, manager.ls(out, hostEid(), 3));
    EXPECT_STREQ("cannot read Container#0 config, parameter TEMPLATE", KQC::getErrorMessage());
}

TEST_F(KQSTEMLocalHostTest, ExactCommandLines)
{
    if (kqtest::ranInPreloadedChild())
        return;
    EXPECT_TRUE(list(hostEid(), 0).empty());
    EXPECT_EQ("", host.calls()) << "an empty filter runs nothing";
    EXPECT_EQ(2u, list(hostEid(), 3).size());
    EXPECT_EQ(1u, list(ct, 3).size());
    const std::vector<KQS::KQSTemplate> web = {KQS::KQSTemplate("webstack", "20260101")};
    EXPECT_EQ(0, manager.add(ct, web, false, false)) << KQC::getErrorMessage();
    EXPECT_EQ(0, manager.add(ct, web, true, true)) << KQC::getErrorMessage();
    EXPECT_EQ(0, manager.rm(ct, web, true, true)) << KQC::getErrorMessage();
    EXPECT_EQ(-23, manager.rm(ct, web, false, false));
    EXPECT_EQ("[\"kqpkgls\",\"-q\"]\n[\"kqpkgls\",\"-q\",\"101\"]\n"
              "[\"kqpkgadd\",\"-q\",\"101\",\"webstack/20260101\"]\n"
              "[\"kqpkgadd\",\"--force\",\"--jump\",\"-q\",\"101\",\"webstack/20260101\"]\n"
              "[\"kqpkgrm\",\"--force\",\"--remove\",\"-q\",\"101\",\"webstack/20260101\"]\n"
              "[\"kqpkgrm\",\"-q\",\"101\",\"webstack/20260101\"]\n",
              host.calls());
}

// The tools' own refusals are seen end to end; here every complaint, in
// the table's order, through fault rules.
TEST_F(KQSTEMLocalHostTest, ToolComplaintsBecomeResults)
{
    if (kqtest::ranInPreloadedChild())
        return;
    struct Case {
        const char* tool;
        const char* text;
        int code;
    } cases[] = {
        {"kqpkgadd", "Use -f/--force option; failed dependencies", -5},
        {"kqpkgadd", "failed dependencies and already installed", -6},
        {"kqpkgrm", "already installed", -7},
        {"kqpkgrm", "no space left", -23},
    };
    const std::vector<KQS::KQSTemplate> web = {KQS::KQSTemplate("webstack")};
    for (const Case& c : cases) {
        host.write("etc/kqsim/faults", std::string(c.tool) + " 101 1 " + c.text + "\n");
        bool adding = std::string(c.tool) == "kqpkgadd";
        EXPECT_EQ(c.code, adding ? manager.add(ct, web, false, false) : manager.rm(ct, web, false, false)) << c.text;
        EXPECT_NE(nullptr, std::strstr(KQC::getErrorMessage(), c.text)) << KQC::getErrorMessage();
    }
    KQC::KQCEID unknown;
    unknown.generate();
    EXPECT_EQ(-22, manager.add(unknown, web, false, false));
    EXPECT_EQ("eid " + unknown.toString() + " is invalid", KQC::getErrorMessage());
}

namespace {

// Builds a package with the system's package builder: one file at `path`.
std::string buildPackage(const kqtest::TempDir& dir, const std::string& name, const std::string& path)
{
    dir.write(name + ".recipe", "Name: " + name +
                                    "\nVersion: 1\nRelease: 1\nSummary: test\nLicense: none\nBuildArch: noarch\n"
                                    "%description\ntest\n%install\nmkdir -p \"$(dirname %{buildroot}" +
                                    path + ")\"\necho x > %{buildroot}" + path + "\n%files\n" + path + "\n");
    std::string command = "rpmbuild -bb --quiet --nodeps --define '_topdir " + dir.path("top") +
                          "' --define '_rpmdir " + dir.path("out") + "' '" + dir.path(name + ".recipe") +
                          "' >/dev/null 2>&1";
    EXPECT_EQ(0, kqtest::run(command)) << command;
    return dir.path("out/noarch/" + name + "-1-1.noarch.rpm");
}

} // namespace

TEST(KQSTEMLocalTest, TemplatePackagesAreRecognisedByTheirFileList)
{
    kqtest::TempDir dir;
    struct Case {
        const char* name;
        const char* path;
        int result;
    } cases[] = {
        {"withconf", "/kq/template/web/conf/web.conf.20260101", 0},
        {"elsewhere", "/usr/share/web/web.conf", -27},
        {"emptyname", "/kq/template//conf/web.conf", -27},
    };
    for (const Case& c : cases)
        EXPECT_EQ(c.result, KQSTEMLocal::isStandardRPM(buildPackage(dir, c.name, c.path))) << c.name;
    EXPECT_EQ(-27, KQSTEMLocal::isStandardRPM(dir.path("missing.rpm")));
    kqtest::EnvOverride noTools("PATH", dir.path("nothing"));
    EXPECT_EQ(-28, KQSTEMLocal::isStandardRPM(dir.path("missing.rpm")));
}
