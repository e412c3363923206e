// The plug-in's own cost per container action: starts and stops of 1,000
// containers through one `kqagent batch`, beside the same `kqctl` runs made
// directly. The difference per action is what the console, the plug-in
// and the executor add to the tool.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <spawn.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace {

const int kFirstVeid = 1000;

std::string run(const std::string& command)
{
    std::string out;
    FILE* pipe = ::popen(command.c_str(), "r");
    if (!pipe)
        std::abort();
    char buffer[4096];
    size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0)
        out.append(buffer, n);
    if (::pclose(pipe) != 0)
        std::abort();
    return out;
}

struct Host {
    std::string root;
    std::vector<std::string> env;  // the tools' environment, KEY=VALUE
};

// A simulated host with `count` stopped containers, made once.
const Host& hostFor(int count)
{
    static Host host;
    if (!host.root.empty())
        return host;
    char pattern[] = "/tmp/kqbench-actions.XXXXXX";
    if (!::mkdtemp(pattern))
        std::abort();
    host.root = pattern;
    std::atexit([] {
        if (std::system(("rm -rf '" + host.root + "'").c_str()) != 0)
            std::fprintf(stderr, "could not remove %s\n", host.root.c_str());
    });
    const std::string kqsim = std::string(KQ_BIN_DIR) + "/kqsim";
    run(kqsim + " init '" + host.root + "'");
    for (int i = 0; i < count; ++i)
        run(kqsim + " add '" + host.root + "' " + std::to_string(kFirstVeid + i));
    // "export KEY=VALUE" lines; PATH's "$PATH" is ours.
    std::istringstream lines(run(kqsim + " env '" + host.root + "'"));
    for (std::string line; std::getline(lines, line);) {
        if (line.compare(0, 7, "export ") != 0)
            continue;
        std::string pair = line.substr(7);
        size_t dollar = pair.find("$PATH");
        if (dollar != std::string::npos)
            pair.replace(dollar, 5, std::getenv("PATH") ? std::getenv("PATH") : "/usr/bin:/bin");
        host.env.push_back(pair);
    }
    return host;
}

// CPU time (user and system, seconds) of the processes run so far, with
// the processes they waited for.
double& childCpu()
{
    static double seconds = 0;
    return seconds;
}

// Runs argv with the environment and standard input from `input` (or
// /dev/null), output discarded; its exit status.
int spawn(const std::vector<std::string>& args, const std::vector<std::string>& env, const char* input)
{
    std::vector<char*> argv, envp;
    for (const std::string& arg : args)
        argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);
    for (const std::string& pair : env)
        envp.push_back(const_cast<char*>(pair.c_str()));
    envp.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, input ? input : "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    pid_t pid = 0;
    int rc = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    if (rc != 0)
        std::abort();
    int status = 0;
    struct rusage usage;
    while (::wait4(pid, &status, 0, &usage) < 0) {
    }
    childCpu() += usage.ru_utime.tv_sec + usage.ru_stime.tv_sec + (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
    return status;
}

std::vector<std::string> withOurs(const std::vector<std::string>& env)
{
    std::vector<std::string> all(env);
    for (char** entry = environ; *entry; ++entry) {
        std::string pair = *entry;
        std::string key = pair.substr(0, pair.find('='));
        bool overridden = false;
        for (const std::string& own : env)
            overridden = overridden || own.compare(0, key.size() + 1, key + "=") == 0;
        if (!overridden)
            all.push_back(pair);
    }
    return all;
}

void BM_StartStopThroughAgent(benchmark::State& state)
{
    int count = static_cast<int>(state.range(0));
    const Host& host = hostFor(count);
    std::string batch = host.root + "/batch.txt";
    {
        std::ofstream lines(batch);
        for (int i = 0; i < count; ++i)
            lines << "start " << kFirstVeid + i << "\n";
        for (int i = 0; i < count; ++i)
            lines << "stop " << kFirstVeid + i << "\n";
    }
    std::vector<std::string> args = {std::string(KQ_BIN_DIR) + "/kqagent", "--root", host.root, "batch"};
    std::vector<std::string> env = withOurs({});
    childCpu() = 0;
    for (auto _ : state)
        if (spawn(args, env, batch.c_str()) != 0)
            state.SkipWithError("a batch line failed");
    state.SetItemsProcessed(state.iterations() * 2 * count);
    state.counters["cpu_ms_per_action"] = childCpu() * 1000 / (state.iterations() * 2.0 * count);
}

void BM_StartStopDirect(benchmark::State& state)
{
    int count = static_cast<int>(state.range(0));
    const Host& host = hostFor(count);
    std::vector<std::string> env = withOurs(host.env);
    // posix_spawnp looks on our PATH, not the tools': name the tool itself.
    const std::string kqctl = std::string(KQ_BIN_DIR) + "/kqsim-tools/kqctl";
    childCpu() = 0;
    for (auto _ : state) {
        for (const char* action : {"start", "stop"})
            for (int i = 0; i < count; ++i)
                if (spawn({kqctl, action, std::to_string(kFirstVeid + i)}, env, nullptr) != 0)
                    state.SkipWithError("kqctl failed");
    }
    state.SetItemsProcessed(state.iterations() * 2 * count);
    state.counters["cpu_ms_per_action"] = childCpu() * 1000 / (state.iterations() * 2.0 * count);
}

// One iteration is 2,000 actions, a minute or more on a loaded machine:
// one iteration each. The CPU time of the processes (cpu_ms_per_action) is
// the figure to compare; the difference of the two is ours.
BENCHMARK(BM_StartStopDirect)->Arg(1000)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StartStopThroughAgent)->Arg(1000)->Iterations(1)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
