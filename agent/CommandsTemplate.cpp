// Commands on templates: listing those of the host or of an environment,
// installing and removing them in an environment.
#include "Commands.h"

#include "JsonWriter.h"

#include "KQC/Error.h"
#include "KQS/Env.h"
#include "KQS/Functionality.h"

#include <ostream>

namespace kqagent {
namespace {

// The template manager for this request; it lives as long as `holder`.
KQS::KQSTEM& templateManager(Session& session, boost::shared_ptr<KQS::KQSTEM>& holder)
{
    auto& mux = KQC::KQCFunctionality<KQS::KQSLibFunctionality>::kit().getKQSTEMMultiplexer();
    if (mux.create(KQS::KQSEnv::type, session.access(), holder) != 0)
        throw std::runtime_error(KQC::getErrorMessage());
    return *holder;
}

boost::json::object templateToJson(const KQS::KQSPackageInfo& info)
{
    boost::json::array versions;
    for (const KQS::KQSPackageVersion& version : info.versions)
        versions.push_back(boost::json::object{
            {"mark", version.versionMark}, {"base", version.baseVersion}, {"cached", version.cached}});
    return boost::json::object{
        {"name", info.name}, {"display_name", info.displayName}, {"type", info.type}, {"versions", versions}};
}

// NAME TYPE MARK[,MARK...] DISPLAY NAME, one template a line; a cached
// version is marked with "*".
void printTemplates(std::ostream& out, const std::vector<KQS::KQSPackageInfo>& templates)
{
    for (const KQS::KQSPackageInfo& info : templates) {
        std::string marks;
        for (const KQS::KQSPackageVersion& version : info.versions)
            marks += (marks.empty() ? "" : ",") + version.versionMark + (version.cached ? "*" : "");
        out << info.name << "  " << info.type << "  " << marks << "  " << info.displayName << "\n";
    }
}

void streamTemplates(Outcome& outcome, const std::vector<KQS::KQSPackageInfo>& templates)
{
    outcome.streamKey = "templates";
    outcome.writeJson = [templates](JsonWriter& writer) {
        writer.beginArray();
        for (const KQS::KQSPackageInfo& info : templates)
            writer.value(templateToJson(info));
        writer.endArray();
    };
    outcome.writeText = [templates](std::ostream& out) { printTemplates(out, templates); };
}

int typeFilter(const std::string& word)
{
    if (word == "os")
        return KQS::KQSTEM::PKG_OS;
    if (word == "app")
        return KQS::KQSTEM::PKG_APP;
    if (word == "all")
        return KQS::KQSTEM::PKG_ALL;
    throw UsageError("--type takes os, app or all, not '" + word + "'");
}

void addList(CommandLine& cli, CLI::App& group)
{
    cli.add(group, "list", "template list [CT|host] [--type os|app|all]", [&cli](CLI::App& command) -> Build {
        std::string& where = addCT(cli, command, false);
        auto& type = cli.value<std::string>("all");
        command.add_option("--type", type, "os, app or all (default)");
        return [&where, &type] {
            const bool onHost = where.empty() || where == "host";
            CtRef ct = onHost ? CtRef() : parseCT(where);
            int filter = typeFilter(type);
            return Runner([onHost, ct, filter](Session& session) {
                Outcome outcome;
                KQC::KQCEID eid = KQC::KQCEID::EID_LOCAL;
                if (!onHost && session.resolve(ct, eid, outcome) != 0)
                    return outcome;
                boost::shared_ptr<KQS::KQSTEM> holder;
                std::vector<KQS::KQSPackageInfo> templates;
                outcome = resultOf(templateManager(session, holder).ls(templates, eid, filter));
                streamTemplates(outcome, templates);
                return outcome;
            });
        };
    });
}

// "template add" and "template rm": the same line but for the second flag.
void addChange(CommandLine& cli, CLI::App& group, bool adding)
{
    const std::string name = adding ? "add" : "rm";
    const std::string flagName = adding ? "--jump" : "--remove";
    const std::string synopsis = "template " + name + " CT T... [--force] [" + flagName + "]";
    cli.add(group, name, synopsis, [&cli, adding, flagName](CLI::App& command) -> Build {
        std::string& ctText = addCT(cli, command);
        auto& names = cli.value<std::vector<std::string>>();
        auto& force = cli.value<bool>(false);
        auto& flag = cli.value<bool>(false);
        command.add_option("T", names, "templates, NAME or NAME/VERSION")->required();
        command.add_flag("--force", force, "even when the tool would refuse");
        command.add_flag(flagName, flag, adding ? "passed on to the installation tool" : "passed on to the removal tool");
        return [&ctText, &names, &force, &flag, adding] {
            CtRef ct = parseCT(ctText);
            std::vector<KQS::KQSTemplate> templates;
            for (const std::string& text : names)
                templates.push_back(KQS::KQSTemplate::fromString(text));
            const bool forced = force, flagged = flag;
            return onEnvironment(ct, [templates, forced, flagged, adding](Session& session, const KQC::KQCEID& eid) {
                Outcome outcome;
                boost::shared_ptr<KQS::KQSTEM> holder;
                KQS::KQSTEM& manager = templateManager(session, holder);
                return resultOf(adding ? manager.add(eid, templates, forced, flagged)
                                       : manager.rm(eid, templates, forced, flagged));
            });
        };
    });
}

} // namespace

void addTemplateCommands(CommandLine& cli)
{
    CLI::App& group = cli.group(cli.root(), "template", "OS and application templates");
    addList(cli, group);
    addChange(cli, group, true);
    addChange(cli, group, false);
}

} // namespace kqagent
