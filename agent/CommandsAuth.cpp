// Authentication of container users: "auth [CT] USER", the password on
// standard input.
#include "Commands.h"

#include "KQC/Auth.h"

#include <iostream>
#include <stdexcept>

namespace kqagent {
namespace {

// The realm type of container users.
const int kContainerRealmType = 1000;

// One line; its line end is not part of the password.
std::string readPassword()
{
    std::string password;
    std::getline(std::cin, password);
    if (!password.empty() && password.back() == '\r')
        password.pop_back();
    return password;
}

Runner auth(Args& args)
{
    std::string first = args.next("USER");
    bool haveCt = !args.empty();
    CtRef ct;
    std::string user = first;
    if (haveCt) {
        ct = parseCT(first);
        user = args.next("USER");
    }
    args.expectEnd();
    return [haveCt, ct, user](Session& session) {
        Outcome outcome;
        KQC::KQCAuthName name;
        name.name = user;
        if (haveCt) {
            KQC::KQCEID eid;
            if (session.resolve(ct, eid, outcome) != 0)
                return outcome;
            name.domain = eid.toString();
        }
        boost::shared_ptr<KQC::KQCAuthMBase> module =
            KQC::KQCAuthMBaseLocalFactory::getInstance()->create(kContainerRealmType, session.access());
        if (!module)
            throw std::runtime_error("no authentication module for container users is loaded");
        KQC::KQCToken token;
        outcome = resultOf(module->authenticate(&token, name, readPassword()));
        if (outcome.rc != 0)
            return outcome;
        outcome.payload["user_sid"] = token.user.toString();
        boost::json::array groups;
        for (const KQC::KQCSID& group : token.groups)
            groups.push_back(boost::json::string(group.toString()));
        outcome.payload["groups"] = groups;
        return outcome;
    };
}

} // namespace

void addAuthCommands(CommandMap& commands) { commands["auth"] = auth; }

} // namespace kqagent
