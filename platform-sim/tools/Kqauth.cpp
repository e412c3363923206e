// kqauth [-t TYPE] [-g GID] VEID USER, the password on standard input (one
// line): checks it against the container's etc/shadow with crypt(3).
// Exit: 0 accepted; 3 wrong password, unknown user, or (with -g) not in the
// group; 7 an account of another TYPE that the container does not have
// (the control panel is not installed there); 1 no such container;
// 2 bad command line. VEID 0 checks the host's own etc/shadow.
#include "Tools.h"

#include "KQSim/Accounts.h"
#include "KQSim/Container.h"

#include "KQC/Error.h"

#include <cstdio>
#include <iostream>

namespace KQSim {
namespace {

struct AuthRequest {
    std::string type;
    int group = -1;
    int veid = 0;
    std::string user;
};

int parseAuth(const ToolArguments& args, AuthRequest& request)
{
    std::vector<std::string> positionals;
    for (size_t i = 1; i < args.size(); ++i) {
        if ((args[i] == "-t" || args[i] == "-g") && i + 1 < args.size()) {
            if (args[i] == "-t")
                request.type = args[++i];
            else if (!parseInt(args[++i], request.group))
                return 2;
        } else {
            positionals.push_back(args[i]);
        }
    }
    if (positionals.size() != 2 || !parseInt(positionals[0], request.veid) || positionals[1].empty())
        return 2;
    request.user = positionals[1];
    return 0;
}

int fileTreeOf(const SimHost& host, int veid, std::string& tree)
{
    if (veid == 0) {
        tree = host.root;
        return 0;
    }
    HostSettings settings;
    ContainerFiles files;
    if (readHostSettings(host, settings) != 0 || findContainer(host, settings, veid, files) != 0)
        return -1;
    tree = files.fileTree();
    return 0;
}

} // namespace

int runKqauth(const SimHost& host, const ToolArguments& args)
{
    AuthRequest request;
    if (parseAuth(args, request) != 0) {
        std::fprintf(stderr, "usage: kqauth [-t TYPE] [-g GID] VEID USER  (password on standard input)\n");
        return 2;
    }
    std::string password;
    std::getline(std::cin, password);
    std::string tree;
    if (fileTreeOf(host, request.veid, tree) != 0) {
        std::fprintf(stderr, "kqauth: %s\n", KQC::getErrorMessage());
        return 1;
    }
    int checked = checkPassword(tree, request.user, password);
    bool special = !request.type.empty() && request.type != "system";
    if (checked < 0 && special) {
        std::fprintf(stderr, "kqauth: the control panel is not installed in container %d\n", request.veid);
        return 7;
    }
    if (checked != 0) {
        std::fprintf(stderr, "kqauth: authentication failed for %s\n", request.user.c_str());
        return 3;
    }
    if (request.group >= 0 && !isInGroup(tree, request.user, request.group)) {
        std::fprintf(stderr, "kqauth: %s is not a member of group %d\n", request.user.c_str(), request.group);
        return 3;
    }
    return 0;
}

} // namespace KQSim
