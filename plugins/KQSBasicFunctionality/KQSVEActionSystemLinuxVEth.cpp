// A container's virtual Ethernet adapters brought to the wanted set: one
// tool run per removed, added and changed adapter, each with only the
// options for what changed.
#include "KQSVEActionSystemLinux.h"

#include "KQSCaches.h"
#include "KQSEnvMLocal.h"
#include "KQSResult.h"
#include "KQSVT.h"

#include "KQC/Error.h"

#include <map>
#include <string>

namespace KQS {
namespace {

const unsigned int kToolLimit = 80000;
const char kDefaultName[] = "venet0";

typedef std::map<std::string, KQSNetVEth> VEthMap;

bool isHostRouted(const KQSNetVEth& veth) { return veth.isHostRouted(); }
bool isDefaultHostRouted(const KQSNetVEth& veth) { return veth.isHostRouted() && veth.getName() == kDefaultName; }

// Of two adapters of one name the first wins.
VEthMap transformToMap(const KQSNetVEthList& list)
{
    VEthMap map;
    for (const KQSNetVEth& veth : list)
        map.emplace(veth.getName(), veth);
    return map;
}

// Runs one tool command with progress to the client; 0, or -6 (-105 for
// exit 78 when `noSpace`) with "kqctl set %d failed: %s".
int runSet(KQSEnvMLocal& envm, int veid, KQC::ExecutionArgs& args, bool noSpace = false)
{
    KQC::HWExec exec;
    int status = KQSVEActionSystemLinux::setHWExecProgessOutput(exec, envm).execWithError(args.toArgs(), 0,
                                                                                          kToolLimit);
    invalidateContainer(veid);  // also after a failure: it may have changed half
    if (status == 0)
        return KQS_OK;
    std::string toolError = KQC::getErrorMessage();
    KQC::setErrorMessage("kqctl set %d failed: %s", veid, toolError.c_str());
    return noSpace && ((status & 0xFF00) >> 8) == 78 ? KQS_ERR_TOOL_NO_SPACE : KQS_ERR_TOOL;
}

void pushWords(KQC::ExecutionArgs& args, std::initializer_list<const char*> words)
{
    for (const char* word : words)
        args.push_back(word, false);
}

// The head of an adapter's command, added once, by the first option.
void addInterfaceName(int veid, const KQSNetVEth& veth, KQC::ExecutionArgs& args)
{
    if (args.size() != 0)
        return;
    pushWords(args, {"kqctl", "--quiet", "set"});
    args.push_back(std::to_string(veid));
    args.push_back("--ifname", false);
    args.push_back(veth.getName());
}

int setVEthMacAddress(int veid, const KQSNetVEth& veth, KQC::ExecutionArgs& args)
{
    if (isDefaultHostRouted(veth)) {
        KQC::setErrorMessage("can't set MAC address to default host routed network device");
        return KQS_ERR_GENERIC;
    }
    addInterfaceName(veid, veth, args);
    if (veth.getMac().empty()) {
        args.push_back("--netif_mac_renew", false);
    } else {
        args.push_back("--mac", false);
        args.push_back(veth.getMac());
    }
    return KQS_OK;
}

int setVEthIpAddress(KQSEnvMLocal& envm, int veid, const KQSNetVEth& veth, KQC::ExecutionArgs& args)
{
    if (!isDefaultHostRouted(veth)) {
        addInterfaceName(veid, veth, args);
        return setIPAddressCreateParameters(&args, veth.getAddresses(), veth.isDhcp(), veth.isDhcp6(), true);
    }
    // The default adapter's addresses are the container's own list.
    if (veth.isDhcp()) {
        KQC::setErrorMessage("can not set DHCP on host routed adapter");
        return KQS_ERR_GENERIC;
    }
    KQC::ExecutionArgs own;
    pushWords(own, {"kqctl", "set"});
    own.push_back(std::to_string(veid));
    own.push_back("--save", false);
    (void)setIPAddressCreateParameters(&own, veth.getAddresses(), false, false, false);
    return runSet(envm, veid, own, true);
}

int setVEthNetworkID(int veid, const KQSNetVEth& veth, KQC::ExecutionArgs& args)
{
    if (isDefaultHostRouted(veth) && !veth.getNetworkId().empty()) {
        KQC::setErrorMessage("can't connect to \"%s\" default host routed network device",
                             veth.getNetworkId().c_str());
        return KQS_ERR_GENERIC;
    }
    addInterfaceName(veid, veth, args);
    args.push_back("--network=" + veth.getNetworkId());
    return KQS_OK;
}

int setVEthDefaultGateway(int veid, const KQSNetVEth& veth, KQC::ExecutionArgs& args)
{
    if (isDefaultHostRouted(veth)) {
        KQC::setErrorMessage("can't set default gateway to default host routed network device");
        return KQS_ERR_GENERIC;
    }
    addInterfaceName(veid, veth, args);
    if (!veth.getGateway().empty()) {
        args.push_back("--gw", false);
        args.push_back(veth.getGateway());
    }
    if (!veth.getGateway6().empty() && KQSVT().isIPv6Available()) {
        args.push_back("--gw6", false);
        args.push_back(veth.getGateway6());
    }
    return KQS_OK;
}

// Name servers are the container's, not the adapter's: a command of their
// own that names no interface.
int setVEthNameservers(KQSEnvMLocal& envm, int veid, const KQSNetVEth& veth)
{
    KQC::ExecutionArgs args;
    args.push_back("kqctl", false);
    args.push_back(veth.getNameservers().empty() ? "unset" : "set", false);
    args.push_back(std::to_string(veid));
    args.push_back("--save", false);
    if (veth.getNameservers().empty())
        args.push_back("--nameserver", false);
    for (const std::string& nameserver : veth.getNameservers()) {
        args.push_back("--nameserver", false);
        args.push_back(nameserver);
    }
    return runSet(envm, veid, args);
}

int adapterCommand(KQSEnvMLocal& envm, int veid, const KQSNetVEth& veth, const char* option)
{
    KQC::ExecutionArgs args;
    pushWords(args, {"kqctl", "--quiet", "set"});
    args.push_back(std::to_string(veid));
    args.push_back(option, false);
    args.push_back(veth.getName());
    args.push_back("--save", false);
    return runSet(envm, veid, args);
}

int createVEthAdapter(KQSEnvMLocal& envm, int veid, const KQSNetVEth& veth)
{
    return adapterCommand(envm, veid, veth, "--netif_add");
}

int removeVEthAdapter(KQSEnvMLocal& envm, int veid, const KQSNetVEth& veth)
{
    if (isDefaultHostRouted(veth)) {
        KQC::setErrorMessage("can't remove host routed device");
        return KQS_ERR_GENERIC;
    }
    return adapterCommand(envm, veid, veth, "--netif_del");
}

// Sets the step's own message in front of the builder's.
int failedTo(const char* format)
{
    std::string why = KQC::getErrorMessage();
    KQC::setErrorMessage(format, why.c_str());
    return KQS_ERR_GENERIC;
}

int addVEthAdapter(KQSEnvMLocal& envm, int veid, const KQSNetVEth& veth)
{
    if (veth.isHostRouted() && veth.getName() != kDefaultName) {
        KQC::setErrorMessage("host routed flag must be set only on \"venet0\" network device");
        return KQS_ERR_GENERIC;
    }
    if (isDefaultHostRouted(veth)) {
        KQC::setErrorMessage("can't create default host routed adapter");
        return KQS_ERR_GENERIC;
    }
    if (createVEthAdapter(envm, veid, veth) != KQS_OK) {
        std::string why = KQC::getErrorMessage();
        KQC::setErrorMessage("can't create VEth network device \"%s\": %s", veth.getName().c_str(), why.c_str());
        return KQS_ERR_GENERIC;
    }
    KQC::ExecutionArgs args;
    if (setVEthMacAddress(veid, veth, args) != KQS_OK)
        return failedTo("can't assign MAC address: %s");
    if (setVEthIpAddress(envm, veid, veth, args) != KQS_OK)
        return failedTo("can't set IP address: %s");
    if (setVEthNetworkID(veid, veth, args) != KQS_OK)
        return failedTo("can't set network id: %s");
    if (setVEthDefaultGateway(veid, veth, args) != KQS_OK)
        return failedTo("can't set default gateway: %s");
    args.push_back("--save", false);
    return runSet(envm, veid, args);
}

bool sameAddresses(const KQSNetVEth& a, const KQSNetVEth& b)
{
    // In order: a reordered list is a change.
    return a.getAddresses() == b.getAddresses() && a.isDhcp() == b.isDhcp() && a.isDhcp6() == b.isDhcp6();
}

} // namespace

int compareVEthAdapters(KQSEnvMLocal& envm, int veid, const KQSNetVEth& wanted, const KQSNetVEth& current)
{
    if (wanted.isHostRouted() != current.isHostRouted()) {
        KQC::setErrorMessage("can't change host routed flag on device \"%s\"", wanted.getName().c_str());
        return KQS_ERR_GENERIC;
    }
    KQC::ExecutionArgs args;
    if (wanted.getMac() != current.getMac() && setVEthMacAddress(veid, wanted, args) != KQS_OK)
        return KQS_ERR_GENERIC;
    if (!sameAddresses(wanted, current) && setVEthIpAddress(envm, veid, wanted, args) != KQS_OK) {
        std::string why = KQC::getErrorMessage();
        KQC::setErrorMessage("can't set IP address to \"%s\": %s", wanted.getName().c_str(), why.c_str());
        return KQS_ERR_GENERIC;
    }
    if (wanted.getNetworkId() != current.getNetworkId() && setVEthNetworkID(veid, wanted, args) != KQS_OK)
        return KQS_ERR_GENERIC;
    if ((wanted.getGateway() != current.getGateway() || wanted.getGateway6() != current.getGateway6())
        && setVEthDefaultGateway(veid, wanted, args) != KQS_OK)
        return KQS_ERR_GENERIC;
    if (wanted.getNameservers() != current.getNameservers() && setVEthNameservers(envm, veid, wanted) != KQS_OK)
        return failedTo("can't set nameservers: %s");
    if (args.size() == 0)
        return KQS_OK;
    args.push_back("--save", false);
    return runSet(envm, veid, args);
}

int applyVEthDifference(KQSEnvMLocal& envm, int veid, const KQC::KQCOptionalProperty<KQSNetVEthList>& current,
                        const KQC::KQCOptionalProperty<KQSNetVEthList>& wanted)
{
    const VEthMap currentByName = transformToMap(current.get());
    const VEthMap wantedByName = transformToMap(wanted.get());
    // Removals and additions go on past a failure; a failed comparison ends
    // the walk. Nothing done before is undone.
    for (const KQSNetVEth& veth : current.get())
        if (!wantedByName.count(veth.getName()) && veth.getName() != kDefaultName)
            (void)removeVEthAdapter(envm, veid, veth);
    for (const KQSNetVEth& veth : wanted.get())
        if (!currentByName.count(veth.getName()))
            (void)addVEthAdapter(envm, veid, veth);
    for (const KQSNetVEth& veth : wanted.get()) {
        auto old = currentByName.find(veth.getName());
        if (old != currentByName.end() && compareVEthAdapters(envm, veid, veth, old->second) != KQS_OK)
            return KQS_ERR_GENERIC;
    }
    return KQS_OK;
}

int KQSVEActionSystemLinux::setVEthDeviceConfig(KQSEnvMLocal& envm, int veid,
                                                const KQC::KQCOptionalProperty<KQSNetVEthList>& adapters)
{
    KQSVPSList list;
    list[veid];
    if (getVPSList(list, true, true) != 0) {
        std::string why = KQC::getErrorMessage();
        KQC::setErrorMessage("can't read old Container configuration: %s", why.c_str());
        return KQS_ERR_GENERIC;
    }
    KQC::KQCOptionalProperty<KQSNetVEthList> current;
    if (list[veid].config)
        list[veid].config->getNetVEths(current);
    if (!adapters.isSpecified())
        return KQS_ERR_GENERIC;
    int hostRouted = 0, defaults = 0;
    for (const KQSNetVEth& veth : adapters.get()) {
        hostRouted += isHostRouted(veth);
        defaults += isDefaultHostRouted(veth);
    }
    if (hostRouted >= 2) {
        KQC::setErrorMessage("can't create more than one host routed network device");
        return KQS_ERR_GENERIC;
    }
    if (defaults >= 2) {
        KQC::setErrorMessage("default host routed device may be only one.");
        return KQS_ERR_GENERIC;
    }
    return applyVEthDifference(envm, veid, current, adapters);
}

} // namespace KQS
