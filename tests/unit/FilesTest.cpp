#include "KQC/Files.h"

#include "KQC/Error.h"
#include "KQC/Handle.h"
#include "KQC/Message.h"
#include "TempHost.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <map>
#include <ostream>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

class FilesTest : public ::testing::Test {
protected:
    std::string path(const std::string& name) const { return m_temp.path(name); }

    std::string read(const std::string& name) const
    {
        std::string text;
        EXPECT_EQ(KQC::file2str(path(name), text), 0) << KQC::getErrorMessage();
        return text;
    }

    void write(const std::string& name, const std::string& text) const
    {
        ASSERT_EQ(KQC::str2file(path(name), text), 0) << KQC::getErrorMessage();
    }

    mode_t modeOf(const std::string& name) const
    {
        struct stat st;
        EXPECT_EQ(::stat(path(name).c_str(), &st), 0);
        return st.st_mode & 07777;
    }

    // Names in the test directory: a leftover temporary shows up here.
    std::set<std::string> entries(const std::string& sub = "") const
    {
        std::set<std::string> names;
        for (const auto& entry : fs::directory_iterator(sub.empty() ? m_temp.dir() : path(sub)))
            names.insert(entry.path().filename().string());
        return names;
    }

    kqtest::TempDir m_temp;
};

TEST_F(FilesTest, EntryExistence)
{
    write("file", "x");
    ASSERT_EQ(::symlink("missing", path("dangling").c_str()), 0);
    EXPECT_NE(KQC::fentryExists(path("file")), 0);
    EXPECT_NE(KQC::fentryExists(m_temp.dir()), 0);
    EXPECT_EQ(KQC::fentryExists(path("missing")), 0);
    EXPECT_EQ(KQC::fentryExists(path("dangling"), 1), 0);
    EXPECT_NE(KQC::fentryExists(path("dangling"), 0), 0);
}

TEST_F(FilesTest, WholeFileRoundTrip)
{
    std::string binary("a\0b\nc", 5);
    write("bin", binary);
    EXPECT_EQ(read("bin"), binary);

    write("empty", "");
    EXPECT_EQ(read("empty"), "");

    std::string big(3 * 1024 * 1024 + 17, 'q');
    write("big", big);
    EXPECT_EQ(read("big"), big);

    write("bin", "shorter");  // replacing, not overwriting in place
    EXPECT_EQ(read("bin"), "shorter");
    EXPECT_EQ(entries(), (std::set<std::string>{"bin", "empty", "big"}));

    // Sizes around one read's chunk: the text ends where the file does.
    for (size_t size : {size_t(65535), size_t(65536), size_t(65537), size_t(131072)}) {
        std::string text(size, 'z');
        write("edge", text);
        EXPECT_EQ(read("edge"), text) << size;
    }
}

// Files whose size tells nothing of their text (0 in /proc) come whole,
// however many reads that takes.
TEST_F(FilesTest, KernelFilesAreReadToTheirEnd)
{
    std::string text;
    ASSERT_EQ(KQC::file2str("/proc/self/status", text), 0) << KQC::getErrorMessage();
    EXPECT_NE(text.find("\nnonvoluntary_ctxt_switches:"), std::string::npos) << text;
    ASSERT_EQ(KQC::file2str("/proc/self/maps", text), 0) << KQC::getErrorMessage();
    EXPECT_NE(text.find("[stack]"), std::string::npos);
    // A file of another owner, whose access time we may not keep, reads too.
    ASSERT_EQ(KQC::file2str("/etc/passwd", text), 0) << KQC::getErrorMessage();
    EXPECT_NE(text.find("root:"), std::string::npos);
}

TEST_F(FilesTest, ReadFailureKeepsErrnoAndNamesThePath)
{
    std::string out = "untouched";
    errno = 0;
    EXPECT_EQ(KQC::file2str(path("missing"), out), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(out, "untouched");
    EXPECT_NE(std::string(KQC::getErrorMessage()).find(path("missing")), std::string::npos);

    ASSERT_EQ(::mkdir(path("dir").c_str(), 0755), 0);
    errno = 0;
    EXPECT_EQ(KQC::file2str(path("dir"), out), -1);
    EXPECT_EQ(errno, EISDIR);
}

// A folder's files read from the open folder: the same refusals, and the
// status of the very file that was read, for a cache to stamp it by.
TEST_F(FilesTest, ReadingFromAnOpenFolderHandsBackTheStatusOfWhatWasRead)
{
    write("101.conf", "VE_ROOT=\"/r\"\n");
    KQC::KQCHandle folder(::open(path("").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    ASSERT_TRUE(folder.isValid());
    std::string out;
    struct stat seen;
    ASSERT_EQ(KQC::file2strAt(folder.get(), "101.conf", path("101.conf"), out, &seen), 0) << KQC::getErrorMessage();
    EXPECT_EQ(out, "VE_ROOT=\"/r\"\n");
    struct stat now;
    ASSERT_EQ(::stat(path("101.conf").c_str(), &now), 0);
    EXPECT_EQ(seen.st_ino, now.st_ino);
    EXPECT_EQ(seen.st_size, now.st_size);

    ASSERT_EQ(::mkfifo(path("fifo").c_str(), 0644), 0);
    out = "untouched";
    EXPECT_EQ(KQC::file2strAt(folder.get(), "fifo", path("fifo"), out), -1);
    EXPECT_EQ(out, "untouched");
    EXPECT_NE(std::string(KQC::getErrorMessage()).find(path("fifo")), std::string::npos);
}

TEST_F(FilesTest, ModesOfReplacedFiles)
{
    write("new", "a");
    EXPECT_EQ(modeOf("new"), 0644u);

    ASSERT_EQ(::chmod(path("new").c_str(), 0600), 0);
    write("new", "b");
    EXPECT_EQ(modeOf("new"), 0600u);  // str2file keeps an existing file's mode

    ASSERT_EQ(KQC::writeFileAtomic(path("script"), "#!/bin/sh\n", 0755), 0);
    EXPECT_EQ(modeOf("script"), 0755u);
    ASSERT_EQ(KQC::writeFileAtomic(path("script"), "#!/bin/sh\n", 0640), 0);
    EXPECT_EQ(modeOf("script"), 0640u);
}

TEST_F(FilesTest, FailedReplacementLeavesNothingBehind)
{
    // The target is a directory: the rename must fail and the temporary go.
    ASSERT_EQ(::mkdir(path("target").c_str(), 0755), 0);
    errno = 0;
    EXPECT_EQ(KQC::writeFileAtomic(path("target"), "data"), -1);
    EXPECT_EQ(errno, EISDIR);
    EXPECT_NE(std::string(KQC::getErrorMessage()).find("can't rename"), std::string::npos);
    EXPECT_EQ(entries(), (std::set<std::string>{"target"}));

    // The target's directory does not exist: nothing can be created.
    errno = 0;
    EXPECT_EQ(KQC::str2file(path("nowhere/file"), "data"), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(entries(), (std::set<std::string>{"target"}));
}

TEST_F(FilesTest, CopyReplacesTargetWithSourceContentAndMode)
{
    ASSERT_EQ(KQC::writeFileAtomic(path("from"), "payload", 0750), 0);
    write("to", "old contents that are longer");
    ASSERT_EQ(KQC::copyFile(path("from"), path("to")), 0) << KQC::getErrorMessage();
    EXPECT_EQ(read("to"), "payload");
    EXPECT_EQ(modeOf("to"), 0750u);
    EXPECT_EQ(entries(), (std::set<std::string>{"from", "to"}));
}

TEST_F(FilesTest, FailedCopyKeepsTheOldTarget)
{
    write("to", "old");
    // A directory opens fine but fails on the first read: the copy breaks
    // off half-way and the target must not change.
    ASSERT_EQ(::mkdir(path("dir").c_str(), 0755), 0);
    errno = 0;
    EXPECT_EQ(KQC::copyFile(path("dir"), path("to")), -1);
    EXPECT_EQ(errno, EISDIR);
    EXPECT_EQ(read("to"), "old");

    EXPECT_EQ(KQC::copyFile(path("missing"), path("to")), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(read("to"), "old");
    EXPECT_EQ(entries(), (std::set<std::string>{"dir", "to"}));
}

TEST_F(FilesTest, TemporaryFileCommitReplacesTarget)
{
    write("conf", "old\n");
    {
        KQC::TemporaryFile tmp(path("conf"));
        ASSERT_TRUE(tmp.isValid());
        EXPECT_EQ(fs::path(tmp.getpath()).parent_path(), fs::path(m_temp.dir()));
        EXPECT_NE(tmp.getpath().find("~tmp"), std::string::npos);
        tmp.stream() << "KEY=\"value\"\n" << 42 << '\n';
        EXPECT_EQ(read("conf"), "old\n");  // nothing visible before the commit
        ASSERT_EQ(tmp.commit(), 0) << KQC::getErrorMessage();
    }
    EXPECT_EQ(read("conf"), "KEY=\"value\"\n42\n");
    EXPECT_EQ(entries(), (std::set<std::string>{"conf"}));
}

TEST_F(FilesTest, TemporaryFileWithoutCommitIsRemoved)
{
    write("conf", "old\n");
    std::string tmpPath;
    {
        KQC::TemporaryFile tmp(path("conf"));
        tmpPath = tmp.getpath();
        tmp.stream() << "half-written";
        EXPECT_EQ(tmp.close(), 0);
        EXPECT_EQ(tmp.close(), 0);  // closing twice is harmless
        EXPECT_NE(KQC::fentryExists(tmpPath), 0);
    }
    EXPECT_EQ(KQC::fentryExists(tmpPath), 0);
    EXPECT_EQ(read("conf"), "old\n");
}

TEST_F(FilesTest, TemporaryFileFailures)
{
    KQC::TemporaryFile nowhere(path("missing-dir/conf"));
    EXPECT_FALSE(nowhere.isValid());
    EXPECT_FALSE(nowhere.stream().good());
    EXPECT_EQ(nowhere.commit(), -1);

    KQC::TemporaryFile nameOnly(path("conf"), false);
    ASSERT_TRUE(nameOnly.isValid());
    EXPECT_EQ(KQC::fentryExists(nameOnly.getpath()), 0);
    KQC::TemporaryFile other(path("conf"), false);
    EXPECT_NE(other.getpath(), nameOnly.getpath());
}

TEST_F(FilesTest, RemoveAndRename)
{
    write("a", "1");
    ASSERT_EQ(KQC::renameFile(path("a"), path("b")), 0);
    EXPECT_EQ(read("b"), "1");
    EXPECT_EQ(KQC::renameFile(path("a"), path("c")), -1);
    EXPECT_EQ(errno, ENOENT);

    ASSERT_EQ(KQC::removeFile(path("b")), 0);
    EXPECT_EQ(KQC::removeFile(path("b")), -1);
    EXPECT_EQ(errno, ENOENT);

    ASSERT_EQ(::mkdir(path("dir").c_str(), 0755), 0);
    EXPECT_EQ(KQC::removeFile(path("dir")), 0);
    EXPECT_TRUE(entries().empty());
}

TEST_F(FilesTest, DeepDirectories)
{
    ASSERT_EQ(KQC::mkDeepDir(path("a/b/c"), 0755), 0) << KQC::getErrorMessage();
    EXPECT_TRUE(fs::is_directory(path("a/b/c")));
    EXPECT_EQ(KQC::mkDeepDir(path("a/b/c"), 0755), 0);  // existing is fine
    EXPECT_EQ(KQC::mkDeepDir(path("a//b/./d/"), 0755), 0);
    EXPECT_TRUE(fs::is_directory(path("a/b/d")));

    ASSERT_EQ(KQC::mkDeepDir(path("x/y/file.conf"), 0700, KQC::MKDIR_EXCLUDE_LAST), 0);
    EXPECT_TRUE(fs::is_directory(path("x/y")));
    EXPECT_FALSE(fs::exists(path("x/y/file.conf")));
    EXPECT_EQ(modeOf("x/y") & 0700u, 0700u);
    EXPECT_EQ(KQC::mkDeepDir("name-only", 0755, KQC::MKDIR_EXCLUDE_LAST), 0);

    write("plain", "x");
    errno = 0;
    EXPECT_EQ(KQC::mkDeepDir(path("plain/sub"), 0755), -1);
    EXPECT_EQ(errno, ENOTDIR);
    EXPECT_NE(std::string(KQC::getErrorMessage()).find(path("plain")), std::string::npos);
}

TEST_F(FilesTest, DirectoryReading)
{
    write("one", "1");
    ASSERT_EQ(::mkdir(path("two").c_str(), 0755), 0);
    KQC::OpenDir dir(m_temp.dir());
    ASSERT_TRUE(static_cast<bool>(dir));
    std::set<std::string> names;
    int dots = 0;
    while (dir.read()) {
        if (dir.isDots())
            ++dots;
        else
            names.insert(dir.name());
    }
    EXPECT_EQ(dots, 2);
    EXPECT_EQ(names, (std::set<std::string>{"one", "two"}));
    EXPECT_FALSE(dir.read());

    KQC::OpenDir missing(path("missing"));
    EXPECT_FALSE(static_cast<bool>(missing));
    EXPECT_FALSE(missing.read());
    KQC::OpenDir notDir(path("one"));
    EXPECT_FALSE(static_cast<bool>(notDir));
}

TEST_F(FilesTest, BackupRestoresUnlessCleared)
{
    write("conf", "original");
    {
        KQC::BackupFile backup;
        ASSERT_EQ(backup.backup(path("conf")), 0) << KQC::getErrorMessage();
        EXPECT_NE(backup.backupPath().find("~bak"), std::string::npos);
        write("conf", "broken rewrite");
        KQC::setErrorMessage("the rewrite failed");
    }
    EXPECT_EQ(read("conf"), "original");
    EXPECT_STREQ(KQC::getErrorMessage(), "the rewrite failed");
    EXPECT_EQ(entries(), (std::set<std::string>{"conf"}));

    {
        KQC::BackupFile backup;
        ASSERT_EQ(backup.backup(path("conf")), 0);
        write("conf", "good rewrite");
        backup.clear();
    }
    EXPECT_EQ(read("conf"), "good rewrite");
    EXPECT_EQ(entries(), (std::set<std::string>{"conf"}));

    KQC::BackupFile explicitRestore;
    ASSERT_EQ(explicitRestore.backup(path("conf")), 0);
    write("conf", "again");
    EXPECT_EQ(explicitRestore.restore(), 0);
    EXPECT_EQ(read("conf"), "good rewrite");
    EXPECT_EQ(explicitRestore.restore(), -1);

    KQC::BackupFile missing;
    EXPECT_EQ(missing.backup(path("missing")), -1);
    EXPECT_EQ(entries(), (std::set<std::string>{"conf"}));
}

TEST(FilesConversionTest, NumbersToText)
{
    EXPECT_EQ(KQC::intToStr(0), "0");
    EXPECT_EQ(KQC::intToStr(-101), "-101");
    EXPECT_EQ(KQC::ulongToStr(ULONG_MAX), "18446744073709551615");
    EXPECT_EQ(KQC::longlongToStr(LLONG_MIN), "-9223372036854775808");
}

TEST(FilesConversionTest, StrictUnsignedParsing)
{
    unsigned long value = 7;
    EXPECT_EQ(KQC::strToUlong("0", value), 0);
    EXPECT_EQ(value, 0u);
    EXPECT_EQ(KQC::strToUlong("134217727", value), 0);
    EXPECT_EQ(value, 134217727u);
    EXPECT_EQ(KQC::strToUlong("18446744073709551615", value), 0);
    EXPECT_EQ(value, ULONG_MAX);

    value = 7;
    for (const char* bad : {"", "12a", "-1", "+1", " 1", "1 ", "0x10", "1.5"}) {
        errno = 0;
        EXPECT_EQ(KQC::strToUlong(bad, value), -1) << bad;
        EXPECT_EQ(errno, EINVAL) << bad;
    }
    errno = 0;
    EXPECT_EQ(KQC::strToUlong("18446744073709551616", value), -1);
    EXPECT_EQ(errno, ERANGE);
    EXPECT_EQ(value, 7u);
}

} // namespace

namespace {

// ---- temporaries left behind ----

TEST_F(FilesTest, OnlyOurOldTemporariesAreRemoved)
{
    const long stale = ::time(nullptr) - 120;
    struct Case {
        const char* name;
        const char* kind;  // "file", "link" or "dir"
        bool old;
        bool removed;
    } cases[] = {
        {"conf~tmpAb3xY9", "file", true, true},
        {"101.conf~tmp000000", "file", true, true},
        {"conf~tmpAb3xYz", "file", false, false},  // a writer may still be at work
        {"conf~tmpAb3x", "file", true, false},     // not mkostemp's six characters
        {"conf~tmpAb-xY9", "file", true, false},
        {"conf~bakAb3xY9", "file", true, false},   // a backup, not a temporary
        {"~tmpAb3xY9", "file", true, false},       // no target name before the tag
        {"plain.conf", "file", true, false},
        {"link~tmpAb3xY9", "link", true, false},   // never followed, never removed
        {"dir~tmpAb3xY9", "dir", true, false},
    };
    write("target", "kept");
    for (const Case& c : cases) {
        const std::string file = path(c.name);
        if (std::string(c.kind) == "link")
            ASSERT_EQ(::symlink(path("target").c_str(), file.c_str()), 0);
        else if (std::string(c.kind) == "dir")
            ASSERT_EQ(::mkdir(file.c_str(), 0755), 0);
        else
            write(c.name, "partial");
        if (c.old)
            kqtest::setModificationTime(file, stale);
    }
    EXPECT_EQ(KQC::removeStaleTemporaries(m_temp.dir(), 60), 2);
    const std::set<std::string> left = entries();
    for (const Case& c : cases)
        EXPECT_EQ(left.count(c.name) == 0, c.removed) << c.name;
    EXPECT_EQ(read("target"), "kept");

    EXPECT_EQ(KQC::removeStaleTemporaries(path("absent"), 60), 0);
    EXPECT_EQ(KQC::removeStaleTemporaries(path("target"), 60), -1);
    EXPECT_NE(std::string(KQC::getErrorMessage()).find(path("target")), std::string::npos);
}

// ---- writers killed at random moments ----

// Contents that tell by themselves whether they are whole: the round, the
// length of the filler, the filler, and an end mark.
std::string wholeContents(unsigned round)
{
    const size_t filler = 1000 + (round * 7919u) % 60000;
    return std::to_string(round) + ":" + std::to_string(filler) + ":" + std::string(filler, 'x') + ":end\n";
}

bool isWhole(const std::string& text)
{
    size_t first = text.find(':');
    size_t second = first == std::string::npos ? first : text.find(':', first + 1);
    if (second == std::string::npos)
        return false;
    unsigned long round = 0;
    if (KQC::strToUlong(text.substr(0, first), round) != 0)
        return false;
    return text == wholeContents(static_cast<unsigned>(round));
}

// Every kind of replacement, over and over, until the process is killed.
[[noreturn]] void writeForever(const std::string& dir)
{
    for (unsigned round = 0;; ++round) {
        const std::string text = wholeContents(round);
        (void)KQC::str2file(dir + "/plain", text);
        (void)KQC::writeFileAtomic(dir + "/moded", text, 0640);
        (void)KQC::copyFile(dir + "/source", dir + "/copy");
        KQC::KQCMessage message;
        message.getIterator().putString(KQC::TAG_NAME, text);
        (void)message.save(dir + "/message");
        KQC::TemporaryFile streamed(dir + "/streamed");
        streamed.stream() << text;
        (void)streamed.commit();
    }
}

std::string messageText(const std::string& file)
{
    KQC::KQCMessage message;
    std::string text;
    if (message.load(file) != 0 || message.getIterator().getString(KQC::TAG_NAME, text) != 0)
        return "unreadable: " + std::string(KQC::getErrorMessage());
    return text;
}

TEST_F(FilesTest, KilledWritersLeaveWholeFilesAndOnlyStaleTemporaries)
{
    const char* wanted = std::getenv("KQ_WRITE_KILLS");
    const int rounds = wanted ? std::atoi(wanted) : 150;
    write("source", wholeContents(7));
    std::srand(static_cast<unsigned>(::getpid()));
    for (int round = 0; round < rounds; ++round) {
        pid_t writer = ::fork();
        ASSERT_GE(writer, 0);
        if (writer == 0)
            writeForever(m_temp.dir());
        ::usleep(static_cast<useconds_t>(std::rand() % 6000));
        ASSERT_EQ(::kill(writer, SIGKILL), 0);
        int status = 0;
        ASSERT_EQ(::waitpid(writer, &status, 0), writer);
        ASSERT_TRUE(WIFSIGNALED(status)) << "the writer ended by itself in round " << round;
        for (const char* name : {"plain", "moded", "copy", "streamed"}) {
            if (kqtest::exists(path(name))) {
                ASSERT_TRUE(isWhole(read(name))) << name << " is partial after round " << round;
            }
        }
        if (kqtest::exists(path("message"))) {
            ASSERT_TRUE(isWhole(messageText(path("message")))) << "after round " << round;
        }
    }
    // What the next start finds: leftovers of our naming, and nothing else.
    int leftovers = 0;
    for (const std::string& name : entries()) {
        if (KQC::isTemporaryName(name)) {
            kqtest::setModificationTime(path(name), ::time(nullptr) - 120);
            ++leftovers;
        }
    }
    RecordProperty("leftovers", leftovers);
    EXPECT_EQ(KQC::removeStaleTemporaries(m_temp.dir(), 60), leftovers);
    for (const std::string& name : entries())
        EXPECT_FALSE(KQC::isTemporaryName(name)) << name;
}

// ---- flushing before renaming ----

constexpr char kTracedWriterDir[] = "KQ_TRACED_WRITER_DIR";

// The same replacements once each, in a process the parent traces.
TEST(FilesFlushTest, TracedWriter)
{
    const char* dir = std::getenv(kTracedWriterDir);
    if (!dir)
        GTEST_SKIP() << "run by FilesFlushTest.EveryReplacementIsFlushedBeforeItsRename";
    const std::string d = dir;
    ASSERT_EQ(KQC::str2file(d + "/plain", "a"), 0);
    ASSERT_EQ(KQC::writeFileAtomic(d + "/moded", "b", 0600), 0);
    ASSERT_EQ(KQC::copyFile(d + "/plain", d + "/copy"), 0);
    KQC::KQCMessage message;
    ASSERT_EQ(message.save(d + "/message"), 0);
    KQC::TemporaryFile streamed(d + "/streamed");
    streamed.stream() << "c";
    ASSERT_EQ(streamed.commit(), 0);
}

TEST(FilesFlushTest, EveryReplacementIsFlushedBeforeItsRename)
{
    kqtest::TempDir temp;
    char self[PATH_MAX] = {};
    ASSERT_GT(::readlink("/proc/self/exe", self, sizeof self - 1), 0);
    const std::string trace = temp.path("trace");
    // The leak checker cannot work under a tracer.
    ASSERT_EQ(kqtest::run("ASAN_OPTIONS=detect_leaks=0 " + std::string(kTracedWriterDir) + "='" + temp.dir() +
                          "' strace -f -qq -o '" + trace +
                          "' -e trace=openat,fsync,fdatasync,rename,renameat,renameat2 '" + self +
                          "' --gtest_filter=FilesFlushTest.TracedWriter >/dev/null 2>&1"),
              0);
    // Follow each temporary file from its creation (the descriptor it got)
    // to its rename: a flush of that descriptor must come in between.
    const std::regex opened(R"re(openat\(AT_FDCWD, "([^"]*~tmp[^"]*)", .*O_CREAT.*\) += (\d+))re");
    const std::regex flushed(R"re((?:fsync|fdatasync)\((\d+)\) += 0)re");
    const std::regex renamed(R"re(rename(?:at2?)?\((?:AT_FDCWD, )?"([^"]*~tmp[^"]*)", )re");
    std::map<std::string, std::string> descriptorOf;  // temporary path -> descriptor
    std::map<std::string, bool> flushedSinceOpen;     // descriptor -> flushed
    int renames = 0;
    std::istringstream lines(kqtest::readFile(trace));
    std::smatch match;
    for (std::string line; std::getline(lines, line);) {
        if (std::regex_search(line, match, opened)) {
            descriptorOf[match[1]] = match[2];
            flushedSinceOpen[match[2]] = false;
        } else if (std::regex_search(line, match, flushed)) {
            flushedSinceOpen[match[1]] = true;
        } else if (std::regex_search(line, match, renamed)) {
            ++renames;
            ASSERT_TRUE(descriptorOf.count(match[1])) << line;
            EXPECT_TRUE(flushedSinceOpen[descriptorOf[match[1]]]) << "renamed unflushed: " << line;
        }
    }
    EXPECT_EQ(renames, 5) << kqtest::readFile(trace);
}

} // namespace
