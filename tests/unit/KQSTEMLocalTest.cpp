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

TEST(KQSTEMLocalTest, OutputParsers)
{
    struct PathCase {
        const char* path;
        bool matches;
    } paths[] = {
        {"/kq/template/web/conf/web.conf.20260101", true},
        {"/kq/template/web/conf/", true},
        {"/kq/template/web/conf", false},
        {"/kq/template//conf/web.conf", false},
        {"/kq/template/conf/web.conf", false},
        {"/kq/template/web/config/x", false},
        {"/kq/templates/web/conf/x", false},
        {"kq/template/web/conf/x", false},
        {"/usr/share/kq/template/web/conf/x", false},
    };
    for (const PathCase& c : paths)
        EXPECT_EQ(c.matches, KQSTEMLocal::isTemplateConfPath(c.path)) << c.path;

    struct ComplaintCase {
        const char* text;
        int code;
    } complaints[] = {
        {"kqpkgadd: template x is an OS template; Use -f/--force option to reinstall the OS", -5},
        {"failed dependencies: x; template x is already installed", -6},
        {"kqpkgadd: template x is already installed", -7},
        {"kqpkgrm: template x is not installed in container 101", -1},
        {"", -1},
    };
    for (const ComplaintCase& c : complaints)
        EXPECT_EQ(c.code, KQSTEMLocal::toolComplaint(c.text)) << c.text;

    std::string name;
    std::vector<std::string> versions;
    EXPECT_FALSE(KQSTEMLocal::parseListLine(" \t", name, versions));
    ASSERT_TRUE(KQSTEMLocal::parseListLine("web 20260101\t20260201 ", name, versions));
    EXPECT_EQ("web", name);
    EXPECT_EQ((std::vector<std::string>{"20260101", "20260201"}), versions);
}

namespace {

// One version of a listed template, in one line for comparisons.
std::string describe(const KQS::KQSPackageInfo& info)
{
    std::string text = info.name + " '" + info.displayName + "' " + info.type;
    for (const KQS::KQSPackageVersion& version : info.versions)
        text += " " + version.versionMark + (version.baseVersion ? "b" : "") + (version.cached ? "c" : "");
    return text;
}

std::vector<std::string> describe(const std::vector<KQS::KQSPackageInfo>& list)
{
    std::vector<std::string> lines;
    for (const KQS::KQSPackageInfo& info : list)
        lines.push_back(describe(info));
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
        ct = registered(101);
    }
    // Registers the host's containers, as the plug-in's start does, and
    // gives the EID of one; the calls log starts empty again.
    KQC::KQCEID registered(int veid)
    {
        KQS::KQSEnvMLocal envM{KQC::KQCAccessProvider()};
        KQC::KQCEnvVector envs;
        EXPECT_EQ(0, envM.getInfoEx(KQC::KQCEIDSet(), envs, 0xffffffff, true)) << KQC::getErrorMessage();
        KQC::KQCEID found;
        for (const auto& env : envs) {
            KQC::envCache()->insert(*env);
            int listed = -1;
            if (env->getConfig() && KQS::KQSEnvConfig(*env->getConfig()).getVeid(listed) == 0 && listed == veid)
                found = env->getEID();
        }
        EXPECT_TRUE(found.isValid()) << veid;
        EXPECT_EQ(0, kqtest::run("truncate -s 0 '" + host.path("var/log/kqsim/calls.log") + "'"));
        return found;
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

TEST_F(KQSTEMLocalHostTest, ListingFiltersByType)
{
    if (kqtest::ranInPreloadedChild())
        return;
    EXPECT_TRUE(list(hostEid(), 0).empty());
    EXPECT_EQ("", host.calls()) << "an empty filter runs nothing";
    const std::string os = "simos-9-x86_64 'Simulated OS 9 (x86_64)' os 20260101bc";
    const std::string app = "webstack 'Web stack' app 20260101";
    EXPECT_EQ((std::vector<std::string>{os, app}), list(hostEid(), 3));
    EXPECT_EQ((std::vector<std::string>{os}), list(hostEid(), 1));
    EXPECT_EQ((std::vector<std::string>{app}), list(hostEid(), 2));
    EXPECT_EQ((std::vector<std::string>{os}), list(ct, 3));
    EXPECT_EQ("[\"kqpkgls\",\"-q\"]\n[\"kqpkgls\",\"-q\"]\n[\"kqpkgls\",\"-q\"]\n[\"kqpkgls\",\"-q\",\"101\"]\n",
              host.calls());
}

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

    KQC::KQCEID unknown;
    unknown.generate();
    EXPECT_EQ(-1, manager.ls(out, unknown, 3));
    EXPECT_EQ("eid " + unknown.toString() + " is invalid", KQC::getErrorMessage());
}

TEST_F(KQSTEMLocalHostTest, ListingWithoutTemplatesFolder)
{
    if (kqtest::ranInPreloadedChild())
        return;
    host.write("etc/sysconfig/kq", "VE_ROOT=\"/x/$VEID\"\n");
    std::vector<KQS::KQSPackageInfo> out;
    EXPECT_EQ(-3, manager.ls(out, hostEid(), 3));
    EXPECT_STREQ("cannot read Container#0 config, parameter TEMPLATE", KQC::getErrorMessage());
    EXPECT_EQ("", host.calls());
}

TEST_F(KQSTEMLocalHostTest, InstallAndRemoveRunTheExactCommandLines)
{
    if (kqtest::ranInPreloadedChild())
        return;
    const std::vector<KQS::KQSTemplate> web = {KQS::KQSTemplate("webstack", "20260101")};
    EXPECT_EQ(0, manager.add(ct, web, false, false)) << KQC::getErrorMessage();
    EXPECT_EQ(0, manager.add(ct, web, true, true)) << KQC::getErrorMessage();
    EXPECT_EQ((std::vector<std::string>{"simos-9-x86_64 'Simulated OS 9 (x86_64)' os 20260101bc",
                                        "webstack 'Web stack' app 20260101"}),
              list(ct, 3));
    EXPECT_EQ(0, manager.rm(ct, {KQS::KQSTemplate("webstack")}, true, true)) << KQC::getErrorMessage();
    EXPECT_EQ(-23, manager.rm(ct, {KQS::KQSTemplate("webstack")}, false, false));
    EXPECT_EQ("[\"kqpkgadd\",\"-q\",\"101\",\"webstack/20260101\"]\n"
              "[\"kqpkgadd\",\"--force\",\"--jump\",\"-q\",\"101\",\"webstack/20260101\"]\n"
              "[\"kqpkgls\",\"-q\",\"101\"]\n"
              "[\"kqpkgrm\",\"--force\",\"--remove\",\"-q\",\"101\",\"webstack\"]\n"
              "[\"kqpkgrm\",\"-q\",\"101\",\"webstack\"]\n",
              host.calls());
}

TEST_F(KQSTEMLocalHostTest, ToolComplaintsBecomeResults)
{
    if (kqtest::ranInPreloadedChild())
        return;
    // Real refusals of the tool first.
    EXPECT_EQ(-5, manager.add(ct, {KQS::KQSTemplate("simos-9-x86_64")}, false, false));
    EXPECT_NE(nullptr, std::strstr(KQC::getErrorMessage(), "Use -f/--force option"));
    ASSERT_EQ(0, manager.add(ct, {KQS::KQSTemplate("webstack")}, false, false));
    EXPECT_EQ(-7, manager.add(ct, {KQS::KQSTemplate("webstack")}, false, false));
    ASSERT_EQ(0, host.kqsim("add 102 --ostemplate other-os"));
    EXPECT_EQ(-6, manager.add(registered(102), {KQS::KQSTemplate("webstack")}, false, false));

    struct Case {
        const char* tool;
        const char* text;
        int code;
    } cases[] = {
        {"kqpkgadd", "failed dependencies and already installed", -6},
        {"kqpkgadd", "no space left", -22},
        {"kqpkgrm", "Use -f/--force option", -5},
        {"kqpkgrm", "no space left", -23},
    };
    for (const Case& c : cases) {
        host.write("etc/kqsim/faults", std::string(c.tool) + " 101 1 " + c.text + "\n");
        std::vector<KQS::KQSTemplate> web = {KQS::KQSTemplate("webstack")};
        int rc = std::string(c.tool) == "kqpkgadd" ? manager.add(ct, web, false, false)
                                                   : manager.rm(ct, web, false, false);
        EXPECT_EQ(c.code, rc) << c.tool << ": " << c.text;
        EXPECT_NE(nullptr, std::strstr(KQC::getErrorMessage(), c.text)) << KQC::getErrorMessage();
    }
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
