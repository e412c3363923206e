// Commands on device mounts: mount list|add|rm CT|host.
#include "Commands.h"
#include "Operators.h"

namespace kqagent {
namespace {

// The host's mounts are asked for under its own identifier.
KQC::KQCEID hostOrCtEid(Session& session, const HostOrCt& target, Outcome& outcome, bool& ok)
{
    KQC::KQCEID eid = KQC::KQCEID::EID_LOCAL;
    ok = resolveHostOrCt(session, target, eid, outcome) == 0;
    return eid;
}

boost::json::array mountsToJson(const std::vector<KQC::KQCDevMountInfo>& mounts)
{
    boost::json::array array;
    for (const auto& m : mounts)
        array.push_back(boost::json::object{{"device", m.getDevice()},
                                            {"point", m.getMountPoint()},
                                            {"type", m.getFsType()},
                                            {"persistent", m.isPersistent()},
                                            {"mounted", m.isMounted()}});
    return array;
}

void addList(CommandLine& cli, CLI::App& mount)
{
    cli.add(mount, "list", "mount list CT|host", [&cli](CLI::App& command) -> Build {
        std::string& ctText = addCT(cli, command);
        return [&ctText] {
            HostOrCt target = parseHostOrCT(ctText);
            return Runner([target](Session& session) {
                Outcome outcome;
                bool ok = false;
                KQC::KQCEID eid = hostOrCtEid(session, target, outcome, ok);
                if (!ok)
                    return outcome;
                std::vector<KQC::KQCDevMountInfo> mounts;
                outcome = resultOf(devM(session)->getMounts(eid, &mounts));
                outcome.payload["mounts"] = mountsToJson(mounts);
                return outcome;
            });
        };
    });
}

// mount add and mount rm: the same options; add needs all three names.
void addChange(CommandLine& cli, CLI::App& mount, bool add)
{
    std::string synopsis = add ? "mount add CT|host --device D --point P --type T [--persistent] [--now]"
                               : "mount rm CT|host --point P [--device D] [--type T] [--persistent] [--now]";
    cli.add(mount, add ? "add" : "rm", synopsis, [&cli, add](CLI::App& command) -> Build {
        std::string& ctText = addCT(cli, command);
        auto& device = cli.value<std::string>();
        auto& point = cli.value<std::string>();
        auto& type = cli.value<std::string>();
        auto& persistent = cli.value<bool>(false);
        auto& now = cli.value<bool>(false);
        command.add_option("--device", device, "host device")->required(add);
        command.add_option("--point", point, "mount point inside the environment")->required();
        command.add_option("--type", type, "file-system type")->required(add);
        command.add_flag("--persistent", persistent, "record it so that it comes back at start");
        command.add_flag("--now", now, "mount (or unmount) it now");
        return [&, add] {
            HostOrCt target = parseHostOrCT(ctText);
            KQC::KQCDevMountInfo info(device, point, type, persistent, now);
            return Runner([target, info, add](Session& session) {
                Outcome outcome;
                bool ok = false;
                KQC::KQCEID eid = hostOrCtEid(session, target, outcome, ok);
                if (!ok)
                    return outcome;
                auto manager = devM(session);
                return resultOf(add ? manager->newMount(eid, info) : manager->unmount(eid, info));
            });
        };
    });
}

} // namespace

void addMountCommands(CommandLine& cli)
{
    CLI::App& mount = cli.group(cli.root(), "mount", "device mounts");
    addList(cli, mount);
    addChange(cli, mount, true);
    addChange(cli, mount, false);
}

} // namespace kqagent
