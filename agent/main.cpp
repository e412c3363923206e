// kqagent: the console that loads the plug-in and drives it, as the host
// agent does for one client.
#include "CommandLine.h"
#include "Output.h"
#include "PluginLoader.h"
#include "SimRoot.h"

#include "KQC/HostPaths.h"
#include "KQC/Log.h"

#include <cstdlib>
#include <ctime>
#include <iostream>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const char* const kProgram = "kqagent";
const char* const kGlobalSynopsis = "[--root DIR] [--json] [--deny RIGHTS] [--plugin PATH] [-v] COMMAND [ARGS...]";

struct GlobalOptions {
    std::string root;
    bool json = false;
    std::string deny;
    std::set<int> denied;
    std::string plugin;
    bool verbose = false;
};

std::set<int> parseRights(const std::string& text)
{
    std::set<int> rights;
    size_t start = 0;
    while (start <= text.size()) {
        size_t comma = text.find(',', start);
        std::string word = text.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
        rights.insert(static_cast<int>(kqagent::parseNumber(word, "right")));
        if (comma == std::string::npos)
            break;
        start = comma + 1;
    }
    return rights;
}

void addGlobalOptions(kqagent::CommandLine& cli, GlobalOptions& options)
{
    CLI::App& root = cli.root();
    cli.describe(root, kGlobalSynopsis);
    root.add_option("--root", options.root, "host root");
    root.add_flag("--json", options.json, "one JSON object per command on standard output");
    root.add_option("--deny", options.deny, "comma-separated rights this client does not hold");
    root.add_option("--plugin", options.plugin, "the plug-in to load");
    root.add_flag("-v,--verbose", options.verbose, "log and events on standard error");
}

// The C library's generator draws the VEIDs the registry proposes; without
// a seed every console would propose the same ones.
void seedRandom()
{
    unsigned int seed = 0;
    if (::getrandom(&seed, sizeof seed, 0) != static_cast<ssize_t>(sizeof seed))
        seed = static_cast<unsigned int>(std::time(nullptr)) ^ static_cast<unsigned int>(::getpid());
    std::srand(seed);
}

// The agent's log: a file in its base folder when that folder exists,
// standard error too with -v.
void setUpLogging(bool verbose)
{
    std::string base = KQC::KQCInstanceFolders::base();
    struct stat st;
    if (::stat(base.c_str(), &st) == 0 && S_ISDIR(st.st_mode))
        KQC::LogSettings::setFile(base + "/kqagent.log");
    KQC::LogSettings::setStderr(verbose);
    KQC::LogSettings::setThreshold(verbose ? 4 : 3);
}

bool runOne(kqagent::Session& session, const kqagent::Runner& runner, bool json)
{
    kqagent::Outcome outcome;
    try {
        outcome = runner(session);
    } catch (const std::exception& e) {
        outcome = kqagent::Outcome();
        outcome.rc = -1;
        outcome.error = e.what();
    }
    kqagent::printOutcome(outcome, json);
    return outcome.rc == 0;
}

// One command per line of standard input, in this one process.
int runBatch(kqagent::Session& session, bool json)
{
    bool allGood = true;
    std::string line;
    while (std::getline(std::cin, line)) {
        size_t first = line.find_first_not_of(" \t\r");
        if (first == std::string::npos || line[first] == '#')
            continue;
        try {
            kqagent::Runner runner = kqagent::parseBatchLine(line);
            allGood = runOne(session, runner, json) && allGood;
        } catch (const kqagent::UsageError& e) {
            kqagent::printUsageError(e.what(), json);
            allGood = false;
        }
    }
    return allGood ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    seedRandom();
    GlobalOptions options;
    kqagent::Runner runner;
    bool batch = false;
    try {
        kqagent::CommandLine cli(kProgram);
        addGlobalOptions(cli, options);
        kqagent::addAllCommands(cli);
        cli.add(cli.root(), "batch", "batch", [&batch](CLI::App&) -> kqagent::Build {
            return [&batch] {
                batch = true;
                return kqagent::Runner([](kqagent::Session&) { return kqagent::Outcome(); });
            };
        });
        std::string help;
        runner = cli.parse(std::vector<std::string>(argv + 1, argv + argc), help);
        if (!runner) {
            std::cout << "usage:\n" << help;
            return 0;
        }
        if (!options.deny.empty())
            options.denied = parseRights(options.deny);
    } catch (const kqagent::UsageError& e) {
        kqagent::printUsageError(e.what(), false);
        return 2;
    }

    std::string error;
    if (!options.root.empty() && kqagent::arrangeHostRoot(options.root, argv, error) != 0) {
        kqagent::printStartupError(error, options.json);
        return 1;
    }
    setUpLogging(options.verbose);

    kqagent::PluginLoader plugin;
    if (plugin.load(options.plugin.empty() ? kqagent::PluginLoader::defaultPath() : options.plugin, error) != 0) {
        kqagent::printStartupError(error, options.json);
        return 1;
    }
    int status;
    {
        kqagent::Session session(options.denied, options.verbose);
        status = batch ? runBatch(session, options.json) : (runOne(session, runner, options.json) ? 0 : 1);
    }
    plugin.unload();
    return status;
}
