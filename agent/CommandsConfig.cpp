// Commands on configurations: the control tool's text form read into the
// structured form, and an environment's configuration written as that text.
#include "Commands.h"
#include "EnvJson.h"

#include "KQC/Error.h"
#include "KQC/Files.h"

#include <boost/make_shared.hpp>

namespace kqagent {
namespace {

// The file is read while the command is parsed: a file that cannot be read
// is a wrong argument, and nothing runs.
std::string readArgumentFile(const std::string& path)
{
    std::string text;
    if (KQC::file2str(path, text) != 0)
        throw UsageError("can't read '" + path + "': " + KQC::getErrorMessage());
    return text;
}

void addVirtualConfig(CommandLine& cli, CLI::App& group)
{
    cli.add(group, "virtual", "config virtual FILE", [&cli](CLI::App& command) -> Build {
        auto& path = cli.value<std::string>();
        command.add_option("FILE", path, "configuration file in the control tool's form")->required();
        return [&path] {
            std::string text = readArgumentFile(path);
            return Runner([text](Session& session) {
                boost::shared_ptr<KQC::KQCNativeConfig> native = boost::make_shared<KQS::KQSNativeConfig>(text);
                boost::shared_ptr<KQC::KQCVEnvConfig> config;
                Outcome outcome = resultOf(session.envM().getVirtualConfig(config, native));
                if (outcome.rc == 0 && config)
                    outcome.payload["config"] = configToJson(KQS::KQSEnvConfig(*config));
                return outcome;
            });
        };
    });
}

// The environment's configuration as the manager lists it; -8 when the
// manager gives none.
int environmentConfig(Session& session, const KQC::KQCEID& eid, boost::shared_ptr<KQC::KQCVEnvConfig>& config)
{
    KQC::KQCEnvVector envs;
    int rc = session.envM().getInfo(KQC::KQCEIDSet{eid}, envs, 0xffffffff);
    if (rc != 0)
        return rc;
    if (envs.empty() || !envs.front() || !envs.front()->getConfig()) {
        KQC::setErrorMessage("no configuration of environment '%s'", eid.toString().c_str());
        return -8;
    }
    config = boost::make_shared<KQS::KQSEnvConfig>(*envs.front()->getConfig());
    return 0;
}

void addNativeConfig(CommandLine& cli, CLI::App& group)
{
    cli.add(group, "native", "config native CT", [&cli](CLI::App& command) -> Build {
        std::string& ctText = addCT(cli, command);
        return [&ctText] {
            CtRef ct = parseCT(ctText);
            return onEnvironment(ct, [](Session& session, const KQC::KQCEID& eid) {
                Outcome outcome;
                boost::shared_ptr<KQC::KQCVEnvConfig> config;
                int rc = environmentConfig(session, eid, config);
                if (rc != 0)
                    return resultOf(rc);
                boost::shared_ptr<KQC::KQCNativeConfig> native;
                outcome = resultOf(session.envM().getNativeConfig(native, config));
                boost::shared_ptr<KQS::KQSNativeConfig> text =
                    boost::dynamic_pointer_cast<KQS::KQSNativeConfig>(native);
                if (outcome.rc == 0 && text)
                    outcome.payload["native"] = text->getText();
                return outcome;
            });
        };
    });
}

} // namespace

void addConfigCommands(CommandLine& cli)
{
    CLI::App& group = cli.group(cli.root(), "config", "configurations in the control tool's form");
    addVirtualConfig(cli, group);
    addNativeConfig(cli, group);
}

} // namespace kqagent
