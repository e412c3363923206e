// Creating a container and changing its settings through the control tool.
#include "KQSVEActionSystemLinux.h"

#include "KQSCaches.h"
#include "KQSEnvMLocal.h"
#include "KQSResult.h"
#include "KQSSampleMLocal.h"
#include "KQSVT.h"

#include "KQC/Error.h"
#include "KQC/Names.h"

#include <boost/make_shared.hpp>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace KQS {
namespace {

const unsigned int kToolLimit = 80000;

// A sample written only to hand a configuration to the tool by name, and
// deleted again when its owner goes, whatever path the caller leaves by.
class DisposableSample {
public:
    static std::unique_ptr<DisposableSample> create(const KQSEnvConfig& config)
    {
        KQC::KQCEnvSample sample(KQC::KQCGUID(), boost::make_shared<KQSEnvConfig>(config));
        const std::string id = KQC::generateID();
        sample.config->setName(id);
        sample.id = KQC::KQCGUID(id);
        KQSSampleMLocal samples{KQC::KQCAccessProvider()};
        if (samples.add(sample, nullptr) != 0)
            return nullptr;
        return std::unique_ptr<DisposableSample>(new DisposableSample(id, sample.id));
    }
    ~DisposableSample()
    {
        // Nothing to tell anyone when it fails: the caller's result stands.
        KQSSampleMLocal samples{KQC::KQCAccessProvider()};
        (void)samples.del(m_ids);
    }
    const std::string& name() const { return m_name; }

private:
    DisposableSample(const std::string& name, const KQC::KQCGUID& id) : m_name(name), m_ids{id} {}

    std::string m_name;
    KQC::KQCGUIDSet m_ids;
};

// Which static addresses go to the tool: none of a family that uses DHCP,
// and no IPv6 one on a host without IPv6.
class DhcpFilter {
public:
    DhcpFilter(bool dhcp4, bool dhcp6) : m_dhcp4(dhcp4), m_dhcp6(dhcp6), m_ipv6(KQSVT().isIPv6Available()) {}
    bool operator()(const KQC::KQCIPAddress& address) const
    {
        if (!KQC::KQCIPv6::isResembling(address))
            return !m_dhcp4;
        return !m_dhcp6 && m_ipv6;
    }

private:
    bool m_dhcp4;
    bool m_dhcp6;
    bool m_ipv6;
};

// The tools run in a fixed locale so that their messages read the same
// everywhere. The host root is the one seam of a relocated host: it goes
// along when it is set (never on a real host).
class ToolEnvironment {
public:
    ToolEnvironment()
    {
        m_texts = {"LANG=en_US.utf8", "LC_ALL=en_US.utf8"};
        if (const char* root = std::getenv("KQ_HOST_ROOT"))
            m_texts.push_back(std::string("KQ_HOST_ROOT=") + root);
        for (const std::string& text : m_texts)
            m_pointers.push_back(text.c_str());
        m_pointers.push_back(nullptr);
    }
    const char* const* get() const { return m_pointers.data(); }

private:
    std::vector<std::string> m_texts;
    std::vector<const char*> m_pointers;
};

// Runs the tool with progress to the client. The wait status; the tool's
// error text is the thread's message on failure.
// The container's files may have changed, whatever the tool's status: a
// failed run may have changed half.
int runTool(KQSEnvMLocal& envm, int veid, KQC::ExecutionArgs& args, bool localeEnvironment)
{
    KQC::HWExec exec;
    ToolEnvironment environment;
    if (localeEnvironment)
        exec.saveEnv(environment.get());
    int status =
        KQSVEActionSystemLinux::setHWExecProgessOutput(exec, envm).execWithError(args.toArgs(), 0, kToolLimit);
    invalidateContainer(veid);
    return status;
}

int exitCodeOf(int status) { return (status & 0xFF00) >> 8; }

std::string textOf(const KQC::KQCOptionalProperty<std::string>& property) { return property.get(); }

bool isDefaultHostRouted(const KQSNetVEth& veth) { return veth.isHostRouted() && veth.getName() == "venet0"; }

} // namespace

int setIPAddressCreateParameters(KQC::ExecutionArgs* args, const std::vector<KQC::KQCIPAddress>& addresses,
                                 bool dhcp4, bool dhcp6, bool withDhcp)
{
    if (withDhcp) {
        args->push_back("--dhcp", false);
        args->push_back(dhcp4 ? "yes" : "no", false);
        if (KQSVT().isIPv6Available()) {
            args->push_back("--dhcp6", false);
            args->push_back(dhcp6 ? "yes" : "no", false);
        }
    }
    // The list replaces the old one entirely.
    args->push_back("--ipdel", false);
    args->push_back("all", false);
    DhcpFilter keep(dhcp4, dhcp6);
    for (const KQC::KQCIPAddress& address : addresses) {
        if (!keep(address))
            continue;
        args->push_back("--ipadd", false);
        args->push_back(address.toStringWithNetwork());
    }
    return 0;
}

int KQSVEActionSystemLinux::create(KQSEnvMLocal& envm, int veid, const KQSEnvConfig& config, bool skipLock)
{
    std::unique_ptr<DisposableSample> sample = DisposableSample::create(config);
    if (!sample)
        return KQS_ERR_WRITE;
    KQC::ExecutionArgs args;
    args.push_back("kqctl", false);
    if (skipLock)
        args.push_back("--skiplock", false);
    args.push_back("create", false);
    args.push_back(std::to_string(veid));
    args.push_back("--config", false);
    args.push_back(sample->name());
    KQC::KQCOptionalProperty<std::string> name;
    config.getName(name);
    if (name.isSpecified() && !name.get().empty()) {
        args.push_back("--name", false);
        args.push_back(name.get());
    }
    int status = runTool(envm, veid, args, true);
    if (status == 0)
        return KQS_OK;
    std::string toolError = KQC::getErrorMessage();
    KQC::setErrorMessage("kqctl create %d failed: %s", veid, toolError.c_str());
    switch (exitCodeOf(status)) {
    case 44:
        return KQS_ERR_TOOL_CREATE;
    case 78:
        return KQS_ERR_TOOL_NO_SPACE;
    default:
        return KQS_ERR_TOOL;
    }
}

namespace {

int unsetKeys(KQSEnvMLocal& envm, int veid, const std::set<std::string>& keys)
{
    KQC::ExecutionArgs args;
    args.push_back("kqctl", false);
    args.push_back("unset", false);
    args.push_back(std::to_string(veid));
    args.push_back("--save", false);
    // A fixed order, whatever order the set has; other keys mean nothing here.
    const std::pair<const char*, const char*> options[] = {
        {"offline_service", "--offline_service"}, {"iptables", "--iptables"}, {"interface_rate", "--rate"}};
    for (const auto& option : options)
        if (keys.count(option.first))
            args.push_back(option.second, false);
    if (runTool(envm, veid, args, false) == 0)
        return KQS_OK;
    std::string toolError = KQC::getErrorMessage();
    KQC::setErrorMessage("kqctl unset %d failed: %s", veid, toolError.c_str());
    return KQS_ERR_TOOL;
}

} // namespace

int KQSVEActionSystemLinux::setEnv(KQSEnvMLocal& envm, int veid, const KQSEnvConfig& config,
                                   const std::set<std::string>& unsetKeys, const char* setMode)
{
    if (!unsetKeys.empty() && KQS::unsetKeys(envm, veid, unsetKeys) != KQS_OK)
        return KQS_ERR_TOOL;
    KQC::ExecutionArgs args;
    args.push_back("kqctl", false);
    args.push_back("set", false);
    args.push_back(std::to_string(veid));
    args.push_back("--save", false);
    if (setMode && *setMode) {
        args.push_back("--setmode", false);
        args.push_back(setMode);
    }
    int rc = setupIPAddresses(envm, veid, config, args);
    if (rc != KQS_OK)
        return rc;
    KQC::KQCOptionalProperty<std::string> hostname, name, description;
    config.getHostname(hostname);
    config.getName(name);
    config.getDescription(description);
    // An empty host name is passed on (it clears the host name); an empty
    // name or description is not.
    if (hostname.isSpecified()) {
        args.push_back("--hostname", false);
        args.push_back(textOf(hostname));
    }
    if (name.isSpecified() && !name.get().empty()) {
        args.push_back("--name", false);
        args.push_back(name.get());
    }
    if (description.isSpecified() && !description.get().empty()) {
        args.push_back("--description", false);
        args.push_back(description.get());
    }
    std::unique_ptr<DisposableSample> sample = DisposableSample::create(config);
    if (!sample)
        return KQS_ERR_WRITE;
    args.push_back("--applyconfig", false);
    args.push_back(sample->name());
    int status = runTool(envm, veid, args, true);
    if (status == 0)
        return KQS_OK;
    std::string toolError = KQC::getErrorMessage();
    KQC::setErrorMessage("kqctl set %d failed: %s", veid, toolError.c_str());
    return exitCodeOf(status) == 78 ? KQS_ERR_TOOL_NO_SPACE : KQS_ERR_TOOL;
}

int KQSVEActionSystemLinux::setupIPAddresses(KQSEnvMLocal& envm, int veid, const KQSEnvConfig& config,
                                             KQC::ExecutionArgs& args)
{
    KQC::KQCOptionalProperty<KQSNetVEthList> veths;
    config.getNetVEths(veths);
    bool defaultAdapter = false;
    for (const KQSNetVEth& veth : veths.get())
        defaultAdapter = defaultAdapter || isDefaultHostRouted(veth);
    // With the default host-routed adapter among the adapters, its own
    // options carry the addresses.
    KQC::KQCOptionalProperty<KQC::KQCIPAddressList> addresses;
    config.getAddresses(addresses);
    if (!defaultAdapter && addresses.isSpecified())
        (void)setIPAddressCreateParameters(&args, addresses.get(), false, false, false);
    if (veths.isSpecified() && setVEthDeviceConfig(envm, veid, veths) != KQS_OK) {
        std::string why = KQC::getErrorMessage();
        KQC::setErrorMessage("can't set VEth device configuration: %s", why.c_str());
        return KQS_ERR_NO_VEID;
    }
    return KQS_OK;
}

int KQSVEActionSystemLinux::setUserPassword(KQSEnvMLocal& envm, int veid, const std::string& user,
                                            const std::string& password)
{
    const std::string who = user.empty() ? "root" : user;
    KQC::ExecutionArgs args;
    args.push_back("kqctl", false);
    args.push_back("set", false);
    args.push_back(std::to_string(veid));
    args.push_back("--save", false);
    args.push_back("--userpasswd", false);
    args.push_back(who + ":" + password);
    if (runTool(envm, veid, args, false) == 0)
        return KQS_OK;
    // The tool's text is its own; it never echoes the argument back.
    std::string toolError = KQC::getErrorMessage();
    KQC::setErrorMessage("kqctl set %d userpassword for %s failed: %s", veid, who.c_str(), toolError.c_str());
    return KQS_ERR_TOOL;
}

int KQSVEActionSystemLinux::setOfflineManagement(KQSEnvMLocal& envm, int veid, bool enable, bool skipLock)
{
    KQC::ExecutionArgs args;
    args.push_back("kqctl", false);
    if (skipLock)
        args.push_back("--skiplock", false);
    args.push_back("set", false);
    args.push_back(std::to_string(veid));
    args.push_back("--save", false);
    args.push_back("--offline_management", false);
    args.push_back(enable ? "yes" : "no", false);
    if (runTool(envm, veid, args, false) == 0)
        return KQS_OK;
    std::string toolError = KQC::getErrorMessage();
    KQC::setErrorMessage("kqctl %s %d failed: %s", "set --offline_management", veid, toolError.c_str());
    return KQS_ERR_TOOL;
}

} // namespace KQS
