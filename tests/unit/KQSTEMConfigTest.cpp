// A template's configuration file: line rules, checks, writing and reading
// back, paths in the templates folder, and rewriting a file in place.
#include "KQSTEMConfig.h"

#include "PreloadedRun.h"
#include "TempHost.h"

#include "KQC/Error.h"

#include <gtest/gtest.h>

#include <csignal>
#include <sstream>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

using KQS::KQSTEMConfig;

namespace {

// Every field the file carries, in one line, for comparing records.
std::string describe(const KQS::KQSTemplateConfigInfo& c)
{
    std::ostringstream out;
    out << "name=" << c.name << ";desc=" << c.description << ";cached=" << c.cached << ";basedir=" << c.basedir
        << ";mark=" << c.versionMark << ";base=" << c.baseVersion << ";sets=";
    for (const KQS::KQSTemplate& set : c.compatibleSets)
        out << set.name << ',';
    out << ";pkgs=";
    for (const auto& entry : c.packages) {
        out << (entry.second.listed ? "" : "!") << entry.first << '[';
        for (const std::string& word : entry.second.words)
            out << word << ' ';
        out << ']';
    }
    out << ";pm=";
    for (const auto& setting : c.packageManager)
        out << setting.first << '=' << setting.second << ',';
    return out.str();
}

// The smallest valid file, for cases about one other line.
const std::string kValid = "%basedir\nb\n%version 20260101\np\n";
const std::string kValidFields = "cached=0;basedir=b;mark=20260101;base=0;sets=;pkgs=p[];pm=";

} // namespace

TEST(KQSTEMConfigTest, LineRules)
{
    struct Case {
        std::string text;
        std::string fields;
    } cases[] = {
        {kValid, "name=;desc=;" + kValidFields},
        {"%name\nab\ncd\n" + kValid, "name=abcd;desc=;" + kValidFields},
        {"%name\n  x \n" + kValid, "name=  x ;desc=;" + kValidFields},
        {"%name\n#<agent>: x\n# comment\n\n" + kValid, "name=#<agent>: x;desc=;" + kValidFields},
        {"%description\none\n two\n" + kValid, "name=;desc=one\n two;" + kValidFields},
        {"before any header\n%unknown\nx\n%required_sets\nx\n%technologies\nx\n%actions\nx\n" + kValid,
         "name=;desc=;" + kValidFields},
        {"  %name\nx\n" + kValid, "name=;desc=;" + kValidFields},
        {kValid + "%cached\nyes\n", "name=;desc=;cached=1;basedir=b;mark=20260101;base=0;sets=;pkgs=p[];pm="},
        {kValid + "%cached\nyes \n", "name=;desc=;" + kValidFields},
        {kValid + "%compatible_sets\nos one\n#x\n os2\n", "name=;desc=;cached=0;basedir=b;mark=20260101;base=0;"
                                                          "sets=os one,os2,;pkgs=p[];pm="},
        {"%basedir\na\n b\n%version\np\n", "name=;desc=;cached=0;basedir=b;mark=00000000;base=0;sets=;pkgs=p[];pm="},
        {"%basedir\nb\n%version   \np\n", "name=;desc=;cached=0;basedir=b;mark=00000000;base=0;sets=;pkgs=p[];pm="},
        {"%basedir\nb\n%base_version 20250101  \np\n",
         "name=;desc=;cached=0;basedir=b;mark=20250101;base=1;sets=;pkgs=p[];pm="},
        {"%basedir\nb\n%version 20260101\n\tbash  5.2\tx \n#<agent>: zsh 5\n# vim\nbash 5.3\n",
         "name=;desc=;cached=0;basedir=b;mark=20260101;base=0;sets=;pkgs=bash[5.3 ]!zsh[5 ];pm="},
        {kValid + "%packageManager\nPKGMAN=\"dpkg\"\nARCH=x86_64\nnot one\nPKGMAN='rpm'\n",
         "name=;desc=;cached=0;basedir=b;mark=20260101;base=0;sets=;pkgs=p[];pm=ARCH=x86_64,PKGMAN=rpm,"},
        {kValid + "%name " + std::string(8180, 'x') + "\n" + std::string(8191, 'n') + "\n",
         "name=" + std::string(8191, 'n') + ";desc=;" + kValidFields},
        {kValid + std::string("%name\na\0b\n\xff\xfe\n", 13), "name=a\xff\xfe;desc=;" + kValidFields},
    };
    for (const Case& c : cases) {
        KQSTEMConfig config;
        EXPECT_EQ(0, config.readFromStr(c.text)) << c.text << KQC::getErrorMessage();
        EXPECT_EQ(c.fields, describe(config)) << c.text;
        EXPECT_EQ("Linux", config.osType);
    }
}

TEST(KQSTEMConfigTest, FailuresAndTheirMessages)
{
    struct Case {
        std::string text;
        int rc;
        std::string message;
    } cases[] = {
        {"", -53, "invalid 'basedir' : "},
        {"%version 20260101\np\n", -53, "invalid 'basedir' : "},
        {"%basedir\na/b\n%version\np\n", -53, "invalid 'basedir' : a/b"},
        {"%basedir\nb\n%version 2026010\np\n", -53, "invalid 'version mark' : 2026010"},
        {"%basedir\nb\n%version 2026010x\np\n", -53, "invalid 'version mark' : 2026010x"},
        {"%basedir\nb\n%version 202601011\np\n", -53, "invalid 'version mark' : 202601011"},
        {"%name\nn\n%description\nd\n%cached\nno\n%basedir\nb\n%version\n", -53, "package list is empty"},
        {"%basedir\nb\n%version\n#<agent>: \np\n", -53, "invalid 'package' : "},
        {"%basedir\nb\n%version\n#<agent>: \t\np\n", -53, "invalid 'package' : "},
        // A line that does not fit ends the input: the packages after it are never read.
        {"%basedir\nb\n%description\n" + std::string(8192, 'd') + "\n%version\np\n", -53, "package list is empty"},
    };
    for (const Case& c : cases) {
        KQSTEMConfig config;
        KQC::setErrorMessage("stale");
        EXPECT_EQ(c.rc, config.readFromStr(c.text)) << c.text;
        EXPECT_EQ(c.message, KQC::getErrorMessage()) << c.text;
    }
}

TEST(KQSTEMConfigTest, WrittenFileReadsBackToTheSameRecord)
{
    KQSTEMConfig original;
    ASSERT_EQ(0, original.readFromStr("%name\nWeb\n%description\nline one\nline two\n%cached\nno\n%basedir\nweb\n"
                                      "%version 20260101\nhttpd 2.4\n#<agent>: php 8.2 cli\n%compatible_sets\nos-a\n"
                                      "os-b\n%packageManager\nPKGMAN=\"dpkg\"\n%technologies\nx86_64\n"));
    std::ostringstream written;
    EXPECT_EQ(0, original.construct(written));
    EXPECT_EQ(std::string::npos, written.str().find("technologies")) << "sections not modelled are lost";
    KQSTEMConfig reread;
    ASSERT_EQ(0, reread.readFromStr(written.str()));
    EXPECT_EQ(describe(original), describe(reread));

    // Kept asymmetries: a cached template loses its compatible sets, an
    // empty mark is written as a bare blank and comes back as "no version",
    // values are written between quotes without escaping, and a package
    // named "%..." (read from an indented line) is written as a header, which
    // hides the packages after it.
    original.cached = true;
    original.versionMark.clear();
    original.packageManager["Q"] = "a\"b";
    std::ostringstream cachedText;
    original.construct(cachedText);
    EXPECT_EQ(std::string::npos, cachedText.str().find("%compatible_sets"));
    EXPECT_NE(std::string::npos, cachedText.str().find("\n%version \n"));
    KQSTEMConfig cached;
    ASSERT_EQ(0, cached.readFromStr(cachedText.str()));
    EXPECT_TRUE(cached.compatibleSets.empty());
    EXPECT_EQ("00000000", cached.versionMark);
    EXPECT_EQ(0u, cached.packageManager.count("Q"));
    KQSTEMConfig percent, rewritten;
    ASSERT_EQ(0, percent.readFromStr("%basedir\nb\n%version\n  %x 1\n"));
    std::ostringstream percentText;
    percent.construct(percentText);
    EXPECT_EQ(-53, rewritten.readFromStr(percentText.str()));
}

namespace {

// Tests on a simulated host, each in a fresh process: the templates folder
// is read once per process.
class KQSTEMConfigHostTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!kqtest::isPreloadedChild())
            return;
        ASSERT_EQ(0, host.simulated());
    }
    std::string confPath(const std::string& name, const std::string& version) const
    {
        return host.path("kq/template/" + name + "/conf/" + name + ".conf." + version);
    }

    kqtest::TempHost host;
};

} // namespace

TEST_F(KQSTEMConfigHostTest, FilesInTheTemplatesFolder)
{
    if (kqtest::ranInPreloadedChild())
        return;
    const std::string folder = host.path("kq/template");
    struct Case {
        const char* name;
        const char* version;
        int metadata;
        int rc;
        std::string path;
    } cases[] = {
        {"web", "", 0, 0, folder + "/web/conf/web.conf.00000000"},
        {"web", "20260101", 0, 0, folder + "/web/conf/web.conf.20260101"},
        {"web", "20260101", 1, 0, folder + "/web/conf/web.xml.20260101"},
        {"", "20260101", 0, -52, ""},
    };
    for (const Case& c : cases) {
        std::string path;
        EXPECT_EQ(c.rc, KQSTEMConfig::constructConfPath(c.name, c.version, path, c.metadata)) << c.name;
        EXPECT_EQ(c.path, path);
    }
    EXPECT_TRUE(KQSTEMConfig::isExisted("webstack", "20260101"));
    EXPECT_FALSE(KQSTEMConfig::isExisted("webstack", ""));
    KQSTEMConfig config;
    EXPECT_EQ(-51, config.read("webstack", "20990101"));
    EXPECT_EQ(-51, config.read(folder)) << "a folder is not a configuration file";

    std::string metadata;
    EXPECT_EQ(-51, KQSTEMConfig::readDwexConfig("webstack", "20260101", metadata));
    host.write("kq/template/webstack/conf/webstack.xml.20260101", "<meta/>");
    EXPECT_EQ(0, KQSTEMConfig::readDwexConfig("webstack", "20260101", metadata));
    EXPECT_EQ("<meta/>", metadata);

    host.write("var/log/kqsim/calls.log", "");
    config.technologies = {"kept"};
    EXPECT_EQ(0, config.getTechnologies("simos-9-x86_64", "20260101"));
    EXPECT_EQ((std::vector<std::string>{"kept", "x86_64", "nptl"}), config.technologies);
    EXPECT_EQ("[\"kqpkginfo\",\"-e\",\"" + confPath("simos-9-x86_64", "20260101") + "\"]\n", host.calls());
    EXPECT_NE(0, config.getTechnologies("simos-9-x86_64", "20990101"));
}

TEST_F(KQSTEMConfigHostTest, TemplatesFolderIsKeptOnceKnown)
{
    if (kqtest::ranInPreloadedChild())
        return;
    const std::string settings = host.read("etc/sysconfig/kq");
    host.write("etc/sysconfig/kq", "VE_ROOT=\"/x/$VEID\"\n");
    std::string folder;
    EXPECT_EQ(-29, KQS::getKQTemplatesFolder(folder));
    host.write("etc/sysconfig/kq", settings);
    ASSERT_EQ(0, KQS::getKQTemplatesFolder(folder));
    EXPECT_EQ(host.path("kq/template"), folder);
    host.write("etc/sysconfig/kq", "TEMPLATE=\"/elsewhere\"\n");
    EXPECT_EQ(0, KQS::getKQTemplatesFolder(folder));
    EXPECT_EQ(host.path("kq/template"), folder);
}

TEST_F(KQSTEMConfigHostTest, SetKeepsTheFilesIdentityAndPackagesOrWhenItCannotWriteTheOldFile)
{
    if (kqtest::ranInPreloadedChild())
        return;
    const std::string path = confPath("webstack", "20260101");
    KQSTEMConfig config;
    ASSERT_EQ(0, config.read(path));
    config.description = "changed";
    config.cached = true;                      // the file's identity wins
    config.packages["php"].listed = false;     // commented out for the tools
    config.packages["php"].words = {"9.9"};    // the file's words win
    config.packages.erase("httpd");
    ASSERT_EQ(0, config.set()) << KQC::getErrorMessage();
    EXPECT_EQ("%name\nWeb stack\n\n%description\nchanged\n\n%cached\nno\n\n%basedir\nwebstack\n\n"
              "%version 20260101\n#<agent>: php 8.2\n\n%compatible_sets\nsimos-9-x86_64\n\n"
              "%packageManager\nPKGMAN=\"dpkg\"\n\n",
              host.read("kq/template/webstack/conf/webstack.conf.20260101"));

    const std::string before = kqtest::readFile(path);
    KQSTEMConfig adding;
    ASSERT_EQ(0, adding.read(path));
    adding.packages["nginx"].name = "nginx";
    EXPECT_EQ(-53, adding.set());
    EXPECT_STREQ("invalid 'package' : nginx", KQC::getErrorMessage());
    KQSTEMConfig unknown;
    unknown.basedir = "nothing";
    EXPECT_EQ(-51, unknown.set());
    EXPECT_EQ(before, kqtest::readFile(path));

    // A set that cannot write leaves the old file.
    KQSTEMConfig big;
    ASSERT_EQ(0, big.read(path));
    big.description = std::string(4096, 'd');
    pid_t pid = ::fork();
    if (pid == 0) {
        // Writes past 100 bytes fail in this process only.
        std::signal(SIGXFSZ, SIG_IGN);
        struct rlimit limit = {100, 100};
        ::setrlimit(RLIMIT_FSIZE, &limit);
        int rc = big.set();
        std::string message = KQC::getErrorMessage();
        _exit(rc == -54 && message.find("system error : ") == 0 ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(pid, ::waitpid(pid, &status, 0));
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(before, kqtest::readFile(path));
    EXPECT_EQ("1\n", kqtest::commandOutput("ls -A '" + host.path("kq/template/webstack/conf") + "' | wc -l"))
        << "no temporary file is left behind";
}
