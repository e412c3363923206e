#include "kqctl/kqctl.h"

#include "TempHost.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

// A fresh simulated host in a temporary folder, made the host root for the
// duration of a test.
class LibkqctlTest : public ::testing::Test {
protected:
    std::string unescaped(std::string text)
    {
        std::vector<char> buffer(text.begin(), text.end());
        buffer.push_back('\0');
        EXPECT_EQ(kqctl_unescapestr_eq(buffer.data()), buffer.data());
        return buffer.data();
    }

    // Runs the working-directory reporter in VEID and returns what it wrote.
    std::string directoryOf(int veid)
    {
        int pipeFds[2];
        EXPECT_EQ(::pipe2(pipeFds, O_CLOEXEC), 0);
        int error = -1;
        pid_t pid = kqctl_env_exec_fn_async(veid, "/etc/kqagent", reportDirectory, nullptr, -1, pipeFds[1], 0, 0, &error);
        ::close(pipeFds[1]);
        std::string text;
        char chunk[512];
        for (ssize_t got; (got = ::read(pipeFds[0], chunk, sizeof chunk)) > 0;)
            text.append(chunk, static_cast<size_t>(got));
        ::close(pipeFds[0]);
        EXPECT_GT(pid, 0) << std::strerror(error);
        EXPECT_EQ(error, 0);
        int status = -1;
        EXPECT_EQ(::waitpid(pid, &status, 0), pid);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 7);
        return text;
    }

    // Writes its working directory to standard output; exit status 7.
    static int reportDirectory(void*)
    {
        char directory[4096];
        if (!::getcwd(directory, sizeof directory))
            return 1;
        ssize_t ignored = ::write(STDOUT_FILENO, directory, std::strlen(directory));
        (void)ignored;
        return 7;
    }

    kqtest::TempHost m_host;
};

TEST_F(LibkqctlTest, OpenNeedsTheHostRoot)
{
    EXPECT_EQ(kqctl_open(), 0);
    ::setenv("KQ_HOST_ROOT", m_host.path("missing").c_str(), 1);
    EXPECT_EQ(kqctl_open(), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(LibkqctlTest, LayoutVersionFollowsTheMarkerFile)
{
    m_host.write("private/101/.ve.layout", "4\n");
    m_host.write("private/102/root/etc/passwd", "");
    m_host.write("private/103/.ve.layout", "5\n");
    m_host.write("private/file", "");
    EXPECT_EQ(kqctl_env_layout_version(m_host.path("private/101").c_str()), 4);
    EXPECT_EQ(kqctl_env_layout_version(m_host.path("private/102").c_str()), 3);
    EXPECT_EQ(kqctl_env_layout_version(m_host.path("private/103").c_str()), 3);
    EXPECT_EQ(kqctl_env_layout_version(m_host.path("private/104").c_str()), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(kqctl_env_layout_version(m_host.path("private/file").c_str()), -1);
    EXPECT_EQ(errno, ENOTDIR);
    EXPECT_EQ(kqctl_env_layout_version(nullptr), -1);
}

TEST_F(LibkqctlTest, UnescapeUndoesTheToolsEscaping)
{
    EXPECT_EQ(unescaped("plain name"), "plain name");
    EXPECT_EQ(unescaped("say \\\"hi\\\""), "say \"hi\"");
    EXPECT_EQ(unescaped("\\$HOME and \\`date\\`"), "$HOME and `date`");
    EXPECT_EQ(unescaped("back\\\\slash"), "back\\slash");
    EXPECT_EQ(unescaped("\\\\\\\""), "\\\"");
    // Backslashes before other characters were never escapes.
    EXPECT_EQ(unescaped("C:\\temp\\n"), "C:\\temp\\n");
    EXPECT_EQ(unescaped("line\\\nnext"), "linenext");
    EXPECT_EQ(unescaped("ends with \\"), "ends with \\");
    EXPECT_EQ(unescaped(""), "");
    EXPECT_EQ(kqctl_unescapestr_eq(nullptr), nullptr);
}

TEST_F(LibkqctlTest, ExecRunsInTheRootOfARunningContainerOnly)
{
    m_host.write("var/lib/kqsim/running", "101\n102\n");
    m_host.write("etc/sysconfig/kq", "VE_ROOT=\"" + m_host.root() + "/kq/root/$VEID\"\n");
    m_host.write("etc/sysconfig/kq-scripts/101.conf", "VE_ROOT=\"" + m_host.root() + "/kq/own/101\"\n");
    fs::create_directories(m_host.path("kq/own/101"));
    fs::create_directories(m_host.path("kq/root/102"));
    EXPECT_EQ(directoryOf(101), m_host.path("kq/own/101"));
    EXPECT_EQ(directoryOf(102), m_host.path("kq/root/102"));
    EXPECT_EQ(directoryOf(0), m_host.root());

    // Containers that do not run, and a missing function, are refused.
    int error = 0;
    EXPECT_EQ(kqctl_env_exec_fn_async(103, "", reportDirectory, nullptr, -1, -1, 0, 0, &error), -1);
    EXPECT_EQ(error, ESRCH);
    EXPECT_EQ(kqctl_env_exec_fn_async(101, "", nullptr, nullptr, -1, -1, 0, 0, &error), -1);
    EXPECT_EQ(error, EINVAL);
}

TEST_F(LibkqctlTest, ExecGivesTheDescriptorsAsStandardInput)
{
    m_host.write("var/lib/kqsim/running", "101\n");
    int input[2], output[2];
    ASSERT_EQ(::pipe2(input, O_CLOEXEC), 0);
    ASSERT_EQ(::pipe2(output, O_CLOEXEC), 0);
    auto echo = [](void*) -> int {
        char text[64];
        ssize_t got = ::read(STDIN_FILENO, text, sizeof text);
        return got > 0 && ::write(STDOUT_FILENO, text, static_cast<size_t>(got)) == got ? 0 : 1;
    };
    pid_t pid = kqctl_env_exec_fn_async(101, "", echo, nullptr, input[0], output[1], 0, 0, nullptr);
    ASSERT_GT(pid, 0);
    ::close(input[0]);
    ::close(output[1]);
    ASSERT_EQ(::write(input[1], "ping", 4), 4);
    ::close(input[1]);
    char text[16] = {};
    EXPECT_EQ(::read(output[0], text, sizeof text), 4);
    EXPECT_STREQ(text, "ping");
    ::close(output[0]);
    int status = -1;
    ASSERT_EQ(::waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

} // namespace
