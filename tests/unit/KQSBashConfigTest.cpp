// Reading and atomically rewriting shell-style configuration files.
#include "KQSBashConfig.h"

#include "TempHost.h"

#include "KQS/BashParsers.h"

#include <gtest/gtest.h>

#include <climits>
#include <dirent.h>
#include <fcntl.h>
#include <map>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

typedef std::map<std::string, std::string> Values;

// How many descriptors of this process are open, without close-on-exec, on a
// path that starts with `prefix`: each would leak into a tool that another
// thread starts meanwhile.
int inheritableDescriptorsOn(const std::string& prefix)
{
    int count = 0;
    DIR* dir = ::opendir("/proc/self/fd");
    if (!dir)
        return -1;
    while (struct dirent* entry = ::readdir(dir)) {
        int fd = std::atoi(entry->d_name);
        char target[PATH_MAX];
        std::string link = std::string("/proc/self/fd/") + entry->d_name;
        ssize_t length = ::readlink(link.c_str(), target, sizeof target - 1);
        if (length <= 0)
            continue;
        target[length] = '\0';
        if (std::string(target).rfind(prefix, 0) != 0)
            continue;
        int flags = ::fcntl(fd, F_GETFD);
        if (flags >= 0 && !(flags & FD_CLOEXEC))
            ++count;
    }
    ::closedir(dir);
    return count;
}

// The framework's parser of plain files, watched while it works: it notes
// the descriptors open on the file (and its temporary) that a child would
// inherit.
struct WatchedParser {
    std::string watched;
    int inheritable = 0;

    int getConfig(std::istream& input, Values& values)
    {
        inheritable += inheritableDescriptorsOn(watched);
        return KQS::KQSRawConfigBashParser::getInstance()->getConfig(input, values);
    }
    int putConfig(const Values& values, std::ostream& output, std::istream* old, bool keepOld)
    {
        inheritable += inheritableDescriptorsOn(watched);
        return KQS::KQSRawConfigBashParser::getInstance()->putConfig(values, output, old, keepOld);
    }
};

class BashConfigTest : public ::testing::Test {
protected:
    std::string path(const std::string& name) const { return host.path(name); }
    // The entries of the host's root folder, to see that no temporary is left.
    int entries() const { return kqtest::run("exit $(ls -A '" + host.root() + "' | wc -l)"); }

    kqtest::TempHost host;
    KQS::KQSRawConfigBashParser& parser = *KQS::KQSRawConfigBashParser::getInstance();
};

} // namespace

TEST_F(BashConfigTest, ReadsAFileAndReportsOnesItCannotOpenOrParse)
{
    host.write("host.conf", "# settings\nVE_ROOT=\"/kq/root/$VEID\"\n");
    Values values;
    ASSERT_EQ(0, KQS::getBashConfig(path("host.conf").c_str(), parser, values)) << KQC::getErrorMessage();
    EXPECT_EQ("/kq/root/$VEID", values["VE_ROOT"]);

    EXPECT_EQ(-1, KQS::getBashConfig(path("missing.conf").c_str(), parser, values));
    EXPECT_EQ("open '" + path("missing.conf") + "' : No such file or directory", KQC::getErrorMessage());

    // A folder opens but does not read: reported, never thrown.
    ASSERT_EQ(0, kqtest::run("mkdir -p '" + path("folder.conf") + "'"));
    EXPECT_EQ(-1, KQS::getBashConfig(path("folder.conf").c_str(), parser, values));
    EXPECT_EQ("open '" + path("folder.conf") + "' : Is a directory", KQC::getErrorMessage());

    host.write("broken.conf", "VE_ROOT=\"unterminated\n");
    EXPECT_EQ(-1, KQS::getBashConfig(path("broken.conf").c_str(), parser, values));
    EXPECT_EQ("parse '" + path("broken.conf") + "' config", KQC::getErrorMessage());
}

TEST_F(BashConfigTest, WritesANewFileAndKeepsOldLinesOnlyWhenAsked)
{
    Values values{{"ONBOOT", "yes"}};
    ASSERT_EQ(0, KQS::putBashConfig(path("new.conf").c_str(), parser, values, true)) << KQC::getErrorMessage();
    EXPECT_NE(std::string::npos, host.read("new.conf").find("ONBOOT=\"yes\""));

    host.write("old.conf", "# kept comment\nOTHER=\"1\"\n");
    ASSERT_EQ(0, KQS::putBashConfig(path("old.conf").c_str(), parser, values, true));
    std::string kept = host.read("old.conf");
    EXPECT_NE(std::string::npos, kept.find("# kept comment"));
    EXPECT_NE(std::string::npos, kept.find("OTHER=\"1\""));
    EXPECT_NE(std::string::npos, kept.find("ONBOOT=\"yes\""));

    ASSERT_EQ(0, KQS::putBashConfig(path("old.conf").c_str(), parser, values, false));
    std::string replaced = host.read("old.conf");
    EXPECT_EQ(std::string::npos, replaced.find("OTHER"));
    EXPECT_NE(std::string::npos, replaced.find("ONBOOT=\"yes\""));
    EXPECT_EQ(2, entries()) << "no temporary file is left beside them";

    // A rewrite keeps the file's mode; a new file is readable by all.
    struct stat st {};
    ASSERT_EQ(0, ::stat(path("new.conf").c_str(), &st));
    EXPECT_EQ(0644u, st.st_mode & 07777);
    ASSERT_EQ(0, ::chmod(path("old.conf").c_str(), 0640));
    ASSERT_EQ(0, KQS::putBashConfig(path("old.conf").c_str(), parser, values, true));
    ASSERT_EQ(0, ::stat(path("old.conf").c_str(), &st));
    EXPECT_EQ(0640u, st.st_mode & 07777);
}

TEST_F(BashConfigTest, AFailedRenameLeavesTheTargetAsItWas)
{
    // A folder in the file's place: the temporary can be written, not renamed.
    ASSERT_EQ(0, kqtest::run("mkdir -p '" + path("taken.conf/inside") + "'"));
    Values values{{"ONBOOT", "yes"}};
    EXPECT_EQ(-1, KQS::putBashConfig(path("taken.conf").c_str(), parser, values, true));
    std::string message = KQC::getErrorMessage();
    EXPECT_EQ(0u, message.find("rename '" + path("taken.conf")));
    EXPECT_NE(std::string::npos, message.find("' -> '" + path("taken.conf") + "' : "));
    EXPECT_TRUE(kqtest::exists(path("taken.conf/inside")));
    EXPECT_EQ(1, entries()) << "the temporary file is removed";

    EXPECT_EQ(-1, KQS::putBashConfig(path("no/folder.conf").c_str(), parser, values, true));
    EXPECT_EQ(0u, std::string(KQC::getErrorMessage()).find("open tmp for '" + path("no/folder.conf") + "': "));
}

TEST_F(BashConfigTest, NoDescriptorOnTheFilesIsInheritedByTools)
{
    host.write("host.conf", "ONBOOT=\"no\"\n");
    WatchedParser watching{path("host.conf")};
    Values values;
    ASSERT_EQ(0, KQS::getBashConfig(path("host.conf").c_str(), watching, values));
    ASSERT_EQ(0, KQS::putBashConfig(path("host.conf").c_str(), watching, values, true));
    EXPECT_EQ(0, watching.inheritable);
}
