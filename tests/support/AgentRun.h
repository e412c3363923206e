#pragma once
// Running the built console as a user would, for end-to-end tests.
#include "KQC/Exec.h"

#include <boost/json.hpp>
#include <string>
#include <sys/wait.h>
#include <vector>

namespace kqtest {

struct RunResult {
    int exitCode = -1;
    std::string out;
    std::string err;
    // The JSON objects of standard output, one per line.
    std::vector<boost::json::object> objects() const
    {
        std::vector<boost::json::object> result;
        size_t start = 0;
        while (start < out.size()) {
            size_t end = out.find('\n', start);
            std::string line = out.substr(start, end == std::string::npos ? std::string::npos : end - start);
            if (!line.empty())
                result.push_back(boost::json::parse(line).as_object());
            if (end == std::string::npos)
                break;
            start = end + 1;
        }
        return result;
    }
    boost::json::object json() const
    {
        auto all = objects();
        return all.size() == 1 ? all.front() : boost::json::object();
    }
};

inline RunResult runProgram(const std::vector<std::string>& argv, const std::string& input = "")
{
    std::vector<const char*> args;
    for (const auto& a : argv)
        args.push_back(a.c_str());
    args.push_back(nullptr);
    KQC::HWExec exec;
    exec.setInput(input);
    RunResult result;
    int status = exec.exec(0, args.data());
    result.exitCode = status >= 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.out = exec.getOutput(KQC::GenExec::OUT);
    result.err = exec.getOutput(KQC::GenExec::ERR);
    return result;
}

// kqagent --root ROOT ARGS...
inline RunResult agent(const std::string& root, std::vector<std::string> args, const std::string& input = "")
{
    args.insert(args.begin(), {std::string(KQ_BIN_DIR) + "/kqagent", "--root", root});
    return runProgram(args, input);
}

} // namespace kqtest
