// Saving and loading framework messages as they grow in depth and in width.
// Both should cost the same per byte of text whatever the shape: the
// bytes-per-second column stays flat across sizes when they are linear.
// (A deep message's text grows with the square of its depth, since each
// level is indented one blank further, so depth is compared per byte.)
#include "KQC/Message.h"
#include "KQC/Tags.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

// One node per level, each holding an integer and a string beside the next.
KQC::KQCMessage deepMessage(int levels)
{
    KQC::KQCMessage message;
    KQC::KQCMessageIterator it = message.getIterator();
    for (int level = 0; level < levels; ++level) {
        it.addInt(KQC::TAG_ID, level);
        it.addString(KQC::TAG_NAME, "level");
        it.createChild("a");
    }
    return message;
}

// `count` sibling nodes under the top, each holding an integer and a string.
KQC::KQCMessage wideMessage(int count)
{
    KQC::KQCMessage message;
    KQC::KQCMessageIterator top = message.getIterator();
    for (int i = 0; i < count; ++i) {
        KQC::KQCMessageIterator child;
        top.appendChild("a", child);
        child.addInt(KQC::TAG_ID, i);
        child.addString(KQC::TAG_NAME, "sibling");
    }
    return message;
}

std::string saved(const KQC::KQCMessage& message)
{
    std::string text;
    if (message.saveToString(text) != 0)
        std::abort();
    return text;
}

void measureSave(benchmark::State& state, const KQC::KQCMessage& message)
{
    const size_t bytes = saved(message).size();
    for (auto _ : state)
        benchmark::DoNotOptimize(saved(message));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}

void measureLoad(benchmark::State& state, const KQC::KQCMessage& message)
{
    const std::string text = saved(message);
    for (auto _ : state) {
        KQC::KQCMessage loaded;
        if (loaded.loadFromString(text) != 0)
            std::abort();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

// Messages built in memory may nest deeper than a load accepts.
void BM_SaveDeep(benchmark::State& state) { measureSave(state, deepMessage(static_cast<int>(state.range(0)))); }
BENCHMARK(BM_SaveDeep)->RangeMultiplier(4)->Range(16, 1024);

void BM_SaveWide(benchmark::State& state) { measureSave(state, wideMessage(static_cast<int>(state.range(0)))); }
BENCHMARK(BM_SaveWide)->RangeMultiplier(8)->Range(64, 32768);

// Loads refuse more than 64 levels.
void BM_LoadDeep(benchmark::State& state) { measureLoad(state, deepMessage(static_cast<int>(state.range(0)))); }
BENCHMARK(BM_LoadDeep)->Arg(16)->Arg(63);

void BM_LoadWide(benchmark::State& state) { measureLoad(state, wideMessage(static_cast<int>(state.range(0)))); }
BENCHMARK(BM_LoadWide)->RangeMultiplier(8)->Range(64, 32768);

} // namespace

BENCHMARK_MAIN();
