// Listing a simulated host with many containers, the hot path of every
// client: cold (every configuration file changed since the last listing),
// warm (nothing changed) and with one changed container, beside the floor:
// the least a warm listing must do (read the configuration folder, and
// stat each configuration file, private area and agent-side file).
//
// The program re-executes itself once with the simulated kernel preloaded,
// so the running list comes from the simulator as it would from a kernel.
// Beside the listings in this process, it runs whole `kqagent --json list`
// processes on the same hosts (their CPU time and peak memory), and ends
// with a table of every figure beside the floor of the same run.
#include "KQSCaches.h"
#include "KQSEnvMLocal.h"

#include "KQC/Env.h"
#include "KQC/GUID.h"
#include "KQC/HostPaths.h"
#include "KQC/Message.h"
#include "KQC/Tags.h"
#include "KQS/Env.h"
#include "KQS/EnvConfig.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <malloc.h>
#include <map>
#include <string>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace {

const char* const kPreloadedMark = "KQ_BENCH_PRELOADED";

// A simulated host with `count` containers, made once per count and kept
// for the life of the program.
struct Host {
    std::string root;
    int count = 0;
};

void writeText(const std::string& path, const std::string& text)
{
    std::ofstream out(path);
    out << text;
    if (!out.flush())
        std::abort();
}

// The agent-side record of a registered container, as the registry writes
// it: the container's VEID and the environment type.
std::string agentRecord(int veid)
{
    KQS::KQSEnvConfig config;
    config.setVeid(veid);
    config.setType(KQC::KQCEnvType(KQS::KQSEnv::type));
    boost::shared_ptr<KQC::KQCMessage> message = KQC::KQCMsgFactory::createNew();
    message->setName("packet");
    KQC::KQCMessageIterator it = message->getIterator();
    std::string text;
    if (it.putObj(KQC::TAG_ENV_CONFIG, config) != 0 || message->saveToString(text) != 0)
        std::abort();
    return text;
}

// Every file of a registered container is written here directly: the
// registry would take one locked, synced write per container, which is
// what a host of 100,000 cannot wait for.
std::string makeHost(int count)
{
    char pattern[] = "/tmp/kqbench.XXXXXX";
    if (!::mkdtemp(pattern))
        std::abort();
    std::string root = pattern;
    std::string init = std::string(KQ_BIN_DIR) + "/kqsim init '" + root + "' >/dev/null";
    if (std::system(init.c_str()) != 0)
        std::abort();
    const std::string agentFolder = root + "/etc/kqagent/configs";
    if (::mkdir(agentFolder.c_str(), 0755) != 0 && errno != EEXIST)
        std::abort();
    for (int i = 0; i < count; ++i) {
        int veid = 1000 + i;
        std::string id = std::to_string(veid);
        std::string privateDir = root + "/kq/private/" + id;
        std::string ownFolder = privateDir + "/.kqs";
        if (::mkdir(privateDir.c_str(), 0755) != 0 || ::mkdir(ownFolder.c_str(), 0755) != 0)
            std::abort();
        std::ofstream conf(root + "/etc/sysconfig/kq-scripts/" + id + ".conf");
        conf << "VE_ROOT=\"" << root << "/kq/root/" << id << "\"\n"
             << "VE_PRIVATE=\"" << privateDir << "\"\n"
             << "OSTEMPLATE=\"simos-9-x86_64\"\nONBOOT=\"no\"\nNAME=\"ct" << id << "\"\n"
             << "HOSTNAME=\"ct" << id << ".example\"\nIP_ADDRESS=\"10." << (veid >> 16) % 256 << "."
             << (veid >> 8) % 256 << "." << veid % 256 << "/24\"\n"
             << "DISKSPACE=\"1048576:1153434\"\nNAMESERVER=\"192.0.2.53\"\n";
        KQC::KQCEID eid;
        eid.generate();
        writeText(agentFolder + "/" + eid.toString(), agentRecord(veid));
        writeText(ownFolder + "/eid.conf", eid.toString());
    }
    return root;
}

// Bytes of the heap in use.
long heapInUse()
{
    return static_cast<long>(::mallinfo2().uordblks);
}

struct Made {
    std::string root;
    double cacheBytesPerContainer = 0;
};

std::vector<std::string>& madeRoots()
{
    static std::vector<std::string> roots;
    return roots;
}

// The hosts are big: none is left behind.
void removeHosts()
{
    for (const std::string& root : madeRoots())
        if (std::system(("rm -rf '" + root + "'").c_str()) != 0)
            std::fprintf(stderr, "could not remove %s\n", root.c_str());
}

const Made& madeFor(int count)
{
    static std::map<int, Made> hosts;
    auto it = hosts.find(count);
    if (it != hosts.end())
        return it->second;
    Made made;
    made.root = makeHost(count);
    if (madeRoots().empty())
        std::atexit(removeHosts);
    madeRoots().push_back(made.root);
    ::setenv("KQ_HOST_ROOT", made.root.c_str(), 1);
    // The last host's caches go first: freed inside the measure, they would
    // be taken off this host's.
    KQS::invalidateAll();
    long before = heapInUse();
    {
        // Register every container once, as the plug-in's start-up does
        // (all are registered already: nothing is written).
        KQS::KQSEnvMLocal envm{KQC::KQCAccessProvider()};
        KQC::KQCEnvVector envs;
        if (envm.getInfoEx(KQC::KQCEIDSet(), envs, 0xffffffff, true) != 0 || envs.size() != size_t(count))
            std::abort();
        // And list once, as a client would: the registry's records fill then.
        KQC::KQCEnvVector listed;
        if (envm.getInfo(KQC::KQCEIDSet(), listed, 0xffffffff) != 0 || listed.size() != size_t(count))
            std::abort();
    }
    // What stays once the listing's own result is gone: the caches.
    made.cacheBytesPerContainer = double(heapInUse() - before) / count;
    return hosts[count] = made;
}

const std::string& hostFor(int count) { return madeFor(count).root; }

void touchAll(const std::string& root, int count)
{
    for (int i = 0; i < count; ++i) {
        std::string path = root + "/etc/sysconfig/kq-scripts/" + std::to_string(1000 + i) + ".conf";
        ::utimensat(AT_FDCWD, path.c_str(), nullptr, 0);
    }
}

enum class Change { None, All, One };

void list(benchmark::State& state, Change change)
{
    int count = static_cast<int>(state.range(0));
    const std::string& root = hostFor(count);
    ::setenv("KQ_HOST_ROOT", root.c_str(), 1);
    KQS::KQSEnvMLocal envm{KQC::KQCAccessProvider()};
    {
        // The caches belong to one host root at a time: the first listing
        // after another benchmark's host fills them again, untimed.
        KQC::KQCEnvVector envs;
        envm.getInfo(KQC::KQCEIDSet(), envs, 0xffffffff);
    }
    int next = 0;
    for (auto _ : state) {
        if (change != Change::None) {
            state.PauseTiming();
            if (change == Change::All) {
                touchAll(root, count);
            } else {
                std::string path = root + "/etc/sysconfig/kq-scripts/" + std::to_string(1000 + next) + ".conf";
                ::utimensat(AT_FDCWD, path.c_str(), nullptr, 0);
                next = (next + 1) % count;
            }
            state.ResumeTiming();
        }
        KQC::KQCEnvVector envs;
        if (envm.getInfo(KQC::KQCEIDSet(), envs, 0xffffffff) != 0 || envs.size() != size_t(count))
            state.SkipWithError("listing failed");
        benchmark::DoNotOptimize(envs);
    }
    state.SetItemsProcessed(state.iterations() * count);
    state.counters["cache_bytes_per_ct"] = madeFor(count).cacheBytesPerContainer;
}

void BM_ListCold(benchmark::State& state) { list(state, Change::All); }
void BM_ListWarm(benchmark::State& state) { list(state, Change::None); }
void BM_ListOneChanged(benchmark::State& state) { list(state, Change::One); }

std::vector<std::string> namesIn(const std::string& folder)
{
    std::vector<std::string> names;
    DIR* dir = ::opendir(folder.c_str());
    if (!dir)
        std::abort();
    while (struct dirent* entry = ::readdir(dir))
        if (entry->d_name[0] != '.')
            names.push_back(entry->d_name);
    ::closedir(dir);
    return names;
}

// The floor: what any warm listing must ask of the kernel, done the
// cheapest way (lookups from open folders), and nothing else.
void BM_Floor(benchmark::State& state)
{
    int count = static_cast<int>(state.range(0));
    const std::string& root = hostFor(count);
    std::string configs = root + "/etc/sysconfig/kq-scripts";
    std::vector<std::string> agentFiles = namesIn(root + "/etc/kqagent/configs");
    int configFd = ::open(configs.c_str(), O_RDONLY | O_DIRECTORY);
    int privateFd = ::open((root + "/kq/private").c_str(), O_PATH | O_DIRECTORY);
    int agentFd = ::open((root + "/etc/kqagent/configs").c_str(), O_PATH | O_DIRECTORY);
    if (configFd < 0 || privateFd < 0 || agentFd < 0 || agentFiles.size() < size_t(count))
        std::abort();
    for (auto _ : state) {
        DIR* dir = ::fdopendir(::dup(configFd));
        ::rewinddir(dir);
        size_t index = 0;
        long found = 0;
        struct stat st;
        while (struct dirent* entry = ::readdir(dir)) {
            char* end = nullptr;
            long veid = std::strtol(entry->d_name, &end, 10);
            if (end == entry->d_name || std::string(end) != ".conf")
                continue;
            char name[32];
            std::snprintf(name, sizeof name, "%ld", veid);
            found += ::fstatat(configFd, entry->d_name, &st, 0) == 0;
            found += ::fstatat(privateFd, name, &st, 0) == 0;
            found += ::fstatat(agentFd, agentFiles[index++ % agentFiles.size()].c_str(), &st, 0) == 0;
        }
        ::closedir(dir);
        benchmark::DoNotOptimize(found);
    }
    ::close(configFd);
    ::close(privateFd);
    ::close(agentFd);
    state.SetItemsProcessed(state.iterations() * count);
}

// The environment of a console started from here: without the simulated
// kernel we preloaded into ourselves (the console arranges its own).
std::vector<std::string> consoleEnvironment()
{
    std::vector<std::string> env;
    for (char** entry = environ; *entry; ++entry) {
        std::string pair = *entry;
        if (pair.compare(0, 11, "LD_PRELOAD=") != 0 && pair.compare(0, 19, "KQ_BENCH_PRELOADED=") != 0)
            env.push_back(pair);
    }
    return env;
}

// A process started from ours begins life in our memory (spawned, or
// forked), and the kernel counts our peak into its own; GNU time, small,
// starts the console for us and reports the console's peak alone.
const char* const kTimeProgram = "/usr/bin/time";

// One whole `kqagent --root ROOT --json list`, output discarded: its CPU
// time (user and system) in seconds and its peak resident size in bytes
// (0 when it cannot be known).
bool runConsoleList(const std::string& root, double& cpuSeconds, double& peakBytes)
{
    const std::string report = root + ".time";
    std::vector<std::string> args = {std::string(KQ_BIN_DIR) + "/kqagent", "--root", root, "--json", "list"};
    const bool timed = ::access(kTimeProgram, X_OK) == 0;
    if (timed)
        args.insert(args.begin(), {kTimeProgram, "-f", "%M", "-o", report});
    std::vector<std::string> env = consoleEnvironment();
    std::vector<char*> argv, envp;
    for (std::string& arg : args)
        argv.push_back(&arg[0]);
    argv.push_back(nullptr);
    for (std::string& pair : env)
        envp.push_back(&pair[0]);
    envp.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    pid_t pid = 0;
    int rc = ::posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    if (rc != 0)
        return false;
    int status = 0;
    struct rusage usage;
    while (::wait4(pid, &status, 0, &usage) < 0)
        if (errno != EINTR)
            return false;
    // With the time program's own, which is a millisecond at most.
    cpuSeconds = usage.ru_utime.tv_sec + usage.ru_stime.tv_sec + (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
    peakBytes = 0;
    if (timed) {
        std::ifstream in(report);
        double kilobytes = 0;
        if (in >> kilobytes)
            peakBytes = kilobytes * 1024;
        ::unlink(report.c_str());
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// The whole console process: start-up (which lists every container once,
// each configuration parsed) and one `list` written as JSON. The time shown
// is the process's CPU time, not the wall time, which on a shared machine
// says more about the neighbours.
void BM_ProcessList(benchmark::State& state)
{
    int count = static_cast<int>(state.range(0));
    const std::string& root = hostFor(count);
    double peak = 0;
    // The figures are for a warm page cache: since this host was last read,
    // the next one's hundreds of thousands of files may have pushed its
    // inodes out, and one untimed run reads them back.
    {
        double cpu = 0, bytes = 0;
        if (!runConsoleList(root, cpu, bytes))
            state.SkipWithError("kqagent list failed");
    }
    for (auto _ : state) {
        // The cold listing before touched every configuration file: their
        // inodes would be written back while this process runs, and that
        // is the kernel's work for that benchmark, not this one's.
        ::sync();
        double cpu = 0, bytes = 0;
        if (!runConsoleList(root, cpu, bytes)) {
            state.SkipWithError("kqagent list failed");
            break;
        }
        state.SetIterationTime(cpu);
        peak = std::max(peak, bytes);
    }
    state.counters["max_rss_MB"] = peak / (1024 * 1024);
}

// Each size has all its figures taken before the next host is made: the
// kernel's caches holding another host's hundred thousand files slow every
// lookup a little, which is no figure of this one. 100,000 containers take
// a while to make (a minute or two): warm listings, the floor and the whole
// process there.
void registerFor(int count, bool changes)
{
    benchmark::RegisterBenchmark("BM_Floor", BM_Floor)->Arg(count)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("BM_ListWarm", BM_ListWarm)->Arg(count)->Unit(benchmark::kMillisecond);
    if (count == 10000)
        benchmark::RegisterBenchmark("BM_ListOneChanged", BM_ListOneChanged)->Arg(count)->Unit(benchmark::kMillisecond);
    if (changes)
        benchmark::RegisterBenchmark("BM_ListCold", BM_ListCold)->Arg(count)->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("BM_ProcessList", BM_ProcessList)
        ->Arg(count)
        ->Iterations(3)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
}

// Prints what the console reporter prints, and keeps every figure for the
// table at the end.
class SummaryReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& run : runs) {
            if (run.error_occurred)
                continue;
            Figures& figures = m_figures[run.benchmark_name()];
            // BM_ProcessList reports the process's CPU time as its time.
            figures.cpuMs = run.benchmark_name().rfind("BM_ProcessList", 0) == 0 ? run.GetAdjustedRealTime()
                                                                                : run.GetAdjustedCPUTime();
            for (const auto& counter : run.counters)
                figures.counters[counter.first] = counter.second.value;
        }
        ConsoleReporter::ReportRuns(runs);
    }

    void printSummary(std::FILE* out) const
    {
        std::fprintf(out, "\nCPU ms per listing, beside the floor of this run (x: times the floor)\n");
        std::fprintf(out, "%8s %9s %9s %6s %11s %9s %10s %12s %11s\n", "N", "floor", "warm", "x", "one-changed",
                     "cold", "cache B/CT", "process CPU", "process MB");
        for (int count : {1000, 10000, 100000}) {
            const Figures* floor = find("BM_Floor", count);
            const Figures* warm = find("BM_ListWarm", count);
            const Figures* any = floor ? floor : warm ? warm : find("BM_ProcessList", count);
            if (!any)
                continue;
            const Figures* one = find("BM_ListOneChanged", count);
            const Figures* cold = find("BM_ListCold", count);
            const Figures* process = find("BM_ProcessList", count);
            std::fprintf(out, "%8d %9s %9s %6s %11s %9s %10s %12s %11s\n", count, ms(floor).c_str(), ms(warm).c_str(),
                         ratio(warm, floor).c_str(), ms(one).c_str(), ms(cold).c_str(),
                         counter(warm, "cache_bytes_per_ct", "%.0f").c_str(), ms(process).c_str(),
                         counter(process, "max_rss_MB", "%.1f").c_str());
        }
    }

private:
    struct Figures {
        double cpuMs = 0;
        std::map<std::string, double> counters;
    };

    const Figures* find(const char* name, int count) const
    {
        // "NAME/COUNT", perhaps with more after a slash: 1000 is not 10000.
        const std::string prefix = std::string(name) + "/" + std::to_string(count);
        for (const auto& entry : m_figures)
            if (entry.first == prefix || entry.first.rfind(prefix + "/", 0) == 0)
                return &entry.second;
        return nullptr;
    }
    static std::string format(const char* pattern, double value)
    {
        char text[32];
        std::snprintf(text, sizeof text, pattern, value);
        return text;
    }
    static std::string ms(const Figures* figures) { return figures ? format("%.1f", figures->cpuMs) : "-"; }
    static std::string ratio(const Figures* of, const Figures* to)
    {
        return of && to && to->cpuMs > 0 ? format("%.1f", of->cpuMs / to->cpuMs) : "-";
    }
    static std::string counter(const Figures* figures, const char* name, const char* pattern)
    {
        if (!figures)
            return "-";
        auto found = figures->counters.find(name);
        return found == figures->counters.end() ? "-" : format(pattern, found->second);
    }

    std::map<std::string, Figures> m_figures;
};

} // namespace

int main(int argc, char** argv)
{
    if (!std::getenv(kPreloadedMark)) {
        ::setenv(kPreloadedMark, "1", 1);
        ::setenv("LD_PRELOAD", KQ_LIB_DIR "/libkqsimkernel.so", 1);
        ::execv("/proc/self/exe", argv);
        return 127;
    }
    registerFor(1000, true);
    registerFor(10000, true);
    registerFor(100000, false);
    benchmark::Initialize(&argc, argv);
    SummaryReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.printSummary(stdout);
    benchmark::Shutdown();
    return 0;
}
