// Listing a simulated host with many containers, the hot path of every
// client: cold (every configuration file changed since the last listing)
// and warm (nothing changed).
//
// The program re-executes itself once with the simulated kernel preloaded,
// so the running list comes from the simulator as it would from a kernel.
#include "KQSEnvMLocal.h"

#include "KQC/Env.h"

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <map>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

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

const std::string& hostFor(int count)
{
    static std::map<int, std::string> hosts;
    auto it = hosts.find(count);
    if (it != hosts.end())
        return it->second;
    std::string root = makeHost(count);
    ::setenv("KQ_HOST_ROOT", root.c_str(), 1);
    // Register every container once, as the plug-in's start-up does.
    KQS::KQSEnvMLocal envm{KQC::KQCAccessProvider()};
    KQC::KQCEnvVector envs;
    if (envm.getInfoEx(KQC::KQCEIDSet(), envs, 0xffffffff, true) != 0 || envs.size() != size_t(count))
        std::abort();
    return hosts[count] = root;
}

void touchAll(const std::string& root, int count)
{
    for (int i = 0; i < count; ++i) {
        std::string path = root + "/etc/sysconfig/kq-scripts/" + std::to_string(1000 + i) + ".conf";
        ::utimensat(AT_FDCWD, path.c_str(), nullptr, 0);
    }
}

void list(benchmark::State& state, bool cold)
{
    int count = static_cast<int>(state.range(0));
    const std::string& root = hostFor(count);
    ::setenv("KQ_HOST_ROOT", root.c_str(), 1);
    KQS::KQSEnvMLocal envm{KQC::KQCAccessProvider()};
    for (auto _ : state) {
        if (cold) {
            state.PauseTiming();
            touchAll(root, count);
            state.ResumeTiming();
        }
        KQC::KQCEnvVector envs;
        if (envm.getInfo(KQC::KQCEIDSet(), envs, 0xffffffff) != 0 || envs.size() != size_t(count))
            state.SkipWithError("listing failed");
        benchmark::DoNotOptimize(envs);
    }
    state.SetItemsProcessed(state.iterations() * count);
}

void BM_ListCold(benchmark::State& state) { list(state, true); }
void BM_ListWarm(benchmark::State& state) { list(state, false); }

BENCHMARK(BM_ListCold)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ListWarm)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

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
