// Commands on templates: listing those of the host or of an environment,
// installing and removing them in an environment.
#include "Commands.h"

#include "KQC/Error.h"
#include "KQS/Env.h"
#include "KQS/Functionality.h"

namespace kqagent {
namespace {

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

Runner listTemplates(Args& args)
{
    bool onHost = true;
    CtRef ct;
    if (!args.empty() && args.peek().compare(0, 2, "--") != 0) {
        std::string where = args.next("CT");
        onHost = where == "host";
        if (!onHost)
            ct = parseCT(where);
    }
    int filter = KQS::KQSTEM::PKG_ALL;
    std::string value;
    if (args.takeValue("--type", value))
        filter = typeFilter(value);
    args.expectEnd();
    return [onHost, ct, filter](Session& session) {
        Outcome outcome;
        KQC::KQCEID eid = KQC::KQCEID::EID_LOCAL;
        if (!onHost && session.resolve(ct, eid, outcome) != 0)
            return outcome;
        boost::shared_ptr<KQS::KQSTEM> holder;
        std::vector<KQS::KQSPackageInfo> templates;
        outcome = resultOf(templateManager(session, holder).ls(templates, eid, filter));
        boost::json::array array;
        for (const KQS::KQSPackageInfo& info : templates)
            array.push_back(templateToJson(info));
        outcome.payload["templates"] = array;
        return outcome;
    };
}

// template add|rm CT T... with the two flags of the operation anywhere after CT.
Runner changeTemplates(Args& args, bool adding)
{
    CtRef ct = parseCT(args.next("CT"));
    const std::string second = adding ? "--jump" : "--remove";
    bool force = false, flag = false;
    std::vector<KQS::KQSTemplate> templates;
    while (!args.empty()) {
        if (args.take("--force"))
            force = true;
        else if (args.take(second))
            flag = true;
        else if (args.peek().compare(0, 1, "-") == 0)
            throw UsageError("unknown option '" + args.peek() + "'");
        else
            templates.push_back(KQS::KQSTemplate::fromString(args.next("T")));
    }
    if (templates.empty())
        throw UsageError("no template given");
    return [ct, force, flag, templates, adding](Session& session) {
        Outcome outcome;
        KQC::KQCEID eid;
        if (session.resolve(ct, eid, outcome) != 0)
            return outcome;
        boost::shared_ptr<KQS::KQSTEM> holder;
        KQS::KQSTEM& manager = templateManager(session, holder);
        return resultOf(adding ? manager.add(eid, templates, force, flag) : manager.rm(eid, templates, force, flag));
    };
}

Runner templateCommand(Args& args)
{
    std::string what = args.next("template subcommand");
    if (what == "list")
        return listTemplates(args);
    if (what == "add")
        return changeTemplates(args, true);
    if (what == "rm")
        return changeTemplates(args, false);
    throw UsageError("unknown template subcommand '" + what + "'");
}

} // namespace

void addTemplateCommands(CommandMap& commands)
{
    commands["template"] = templateCommand;
}

} // namespace kqagent
