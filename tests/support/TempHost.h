#pragma once
// A fresh host root in a temporary folder for one test: KQ_HOST_ROOT points
// at it while the object lives, and the folder is removed afterwards.
// Helpers write files under it; `simulated()` turns it into a simulated
// host with the project's own kqsim.
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kqtest {

inline int run(const std::string& command) 
{
    int status = std::system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

inline std::string readFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

inline void writeFile(const std::string& path, const std::string& text)
{
    std::string dir = path.substr(0, path.rfind('/'));
    run("mkdir -p '" + dir + "'");
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
    if (!out)
        throw std::runtime_error("can't write " + path);
}

inline bool exists(const std::string& path)
{
    struct stat st;
    return ::lstat(path.c_str(), &st) == 0;
}

class TempHost {
public:
    TempHost()
    {
        char pattern[] = "/tmp/kqtest.XXXXXX";
        if (!::mkdtemp(pattern))
            throw std::runtime_error("mkdtemp failed");
        m_root = pattern;
        const char* old = std::getenv("KQ_HOST_ROOT");
        m_hadOld = old != nullptr;
        if (old)
            m_old = old;
        ::setenv("KQ_HOST_ROOT", m_root.c_str(), 1);
    }
    ~TempHost()
    {
        if (m_pathChanged)
            ::setenv("PATH", m_oldPath.c_str(), 1);
        if (m_hadOld)
            ::setenv("KQ_HOST_ROOT", m_old.c_str(), 1);
        else
            ::unsetenv("KQ_HOST_ROOT");
        run("rm -rf '" + m_root + "'");
    }
    TempHost(const TempHost&) = delete;
    TempHost& operator=(const TempHost&) = delete;

    const std::string& root() const { return m_root; }
    std::string path(const std::string& relative) const { return m_root + "/" + relative; }
    void write(const std::string& relative, const std::string& text) const { writeFile(path(relative), text); }
    std::string read(const std::string& relative) const { return readFile(path(relative)); }

    // Makes this folder a simulated host (kqsim init) and puts the
    // simulator's tools first on PATH while this object lives; 0 on success.
    int simulated(const std::string& options = "")
    {
        int rc = run(std::string(KQ_BIN_DIR) + "/kqsim init '" + m_root + "' " + options + " >/dev/null");
        if (rc != 0)
            return rc;
        const char* path = std::getenv("PATH");
        m_oldPath = path ? path : "/usr/bin:/bin";
        m_pathChanged = true;
        std::string tools = std::string(KQ_BIN_DIR) + "/kqsim-tools";
        ::setenv("PATH", (tools + ":" + m_oldPath).c_str(), 1);
        return 0;
    }
    // Runs kqsim with these arguments on this host; its exit code.
    int kqsim(const std::string& arguments) const
    {
        return run(std::string(KQ_BIN_DIR) + "/kqsim " + arguments.substr(0, arguments.find(' ')) + " '" + m_root +
                   "'" + (arguments.find(' ') == std::string::npos ? "" : arguments.substr(arguments.find(' '))) +
                   " >/dev/null");
    }
    // The simulated tools' calls log.
    std::string calls() const { return read("var/log/kqsim/calls.log"); }

private:
    std::string m_root;
    std::string m_old;
    bool m_hadOld = false;
    std::string m_oldPath;
    bool m_pathChanged = false;
};

} // namespace kqtest
