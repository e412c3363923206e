// Listing a simulated host with many containers, the hot path of every
// client: cold (every configuration file changed since the last listing),
// warm (nothing changed) and with one changed container, beside the floor:
// the least a warm listing must do (read the configuration folder, and
// stat each configuration file, private area and agent-side file).
//
// The program re-executes itself once with the simulated kernel preloaded,
// so the running list comes from the simulator as it would from a kernel.
#include "KQSEnvMLocal.h"

#include "KQC/Env.h"

#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <malloc.h>
#include <map>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

const char* const kPreloadedMark = "KQ_BENCH_PRELOADED";

// A simulated host with `count` containers, made once per count and kept
// for the life of the program.
struct Host {
    std::string root;
    int count = 0;
};

std::string makeHost(int count)
{
    char pattern[] = "/tmp/kqbench.XXXXXX";
    if (!::mkdtemp(pattern))
        std::abort();
    std::string root = pattern;
    std::string init = std::string(KQ_BIN_DIR) + "/kqsim init '" + root + "' >/dev/null";
    if (std::system(init.c_str()) != 0)
        std::abort();
    for (int i = 0; i < count; ++i) {
        int veid = 1000 + i;
        std::string id = std::to_string(veid);
        std::string privateDir = root + "/kq/private/" + id;
        ::mkdir(privateDir.c_str(), 0755);
        std::ofstream conf(root + "/etc/sysconfig/kq-scripts/" + id + ".conf");
        conf << "VE_ROOT=\"" << root << "/kq/root/" << id << "\"\n"
             << "VE_PRIVATE=\"" << privateDir << "\"\n"
             << "OSTEMPLATE=\"simos-9-x86_64\"\nONBOOT=\"no\"\nNAME=\"ct" << id << "\"\n"
             << "HOSTNAME=\"ct" << id << ".example\"\nIP_ADDRESS=\"10." << (veid >> 16) % 256 << "."
             << (veid >> 8) % 256 << "." << veid % 256 << "/24\"\n"
             << "DISKSPACE=\"1048576:1153434\"\nNAMESERVER=\"192.0.2.53\"\n";
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
    long before = heapInUse();
    {
        // Register every container once, as the plug-in's start-up does.
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

// 100,000 containers take a while to make (about a minute): warm listings
// and the floor only.
BENCHMARK(BM_Floor)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ListWarm)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ListOneChanged)->Arg(10000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ListCold)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv)
{
    if (!std::getenv(kPreloadedMark)) {
        ::setenv(kPreloadedMark, "1", 1);
        ::setenv("LD_PRELOAD", KQ_LIB_DIR "/libkqsimkernel.so", 1);
        ::execv("/proc/self/exe", argv);
        return 127;
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
