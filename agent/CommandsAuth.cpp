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

// The work of one authentication; the password is read only when it runs.
Runner authRunner(bool haveCt, const CtRef& ct, const std::string& user)
{
    return Runner([haveCt, ct, user](Session& session) {
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
    });
}

// auth [CT] USER: with one word it is the user, on the host.
void addAuth(CommandLine& cli)
{
    cli.add(cli.root(), "auth", "auth [CT] USER", [&cli](CLI::App& command) -> Build {
        auto& words = cli.value<std::vector<std::string>>();
        command.add_option("words", words, "[CT] USER")->required()->expected(1, 2);
        return [&words] {
            bool haveCt = words.size() == 2;
            CtRef ct;
            if (haveCt)
                ct = parseCT(words[0]);
            std::string user = words.back();
            if (user.empty())
                throw UsageError("auth: USER must not be empty");
            return authRunner(haveCt, ct, user);
        };
    });
}

} // namespace

void addAuthCommands(CommandLine& cli) { addAuth(cli); }

} // namespace kqagent
