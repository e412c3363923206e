// Operations on more than one container: repair behind a temporary repair
// container, and moving and cloning through the migration tool.
//
// How stop-repair finds the repair container of a repaired one: right after
// creating it, repair writes the repaired VEID into the repair container's
// own configuration file under kRepairedVeidKey. Stop-repair looks among the
// containers of type 4 from 10000000 up for those whose file names the VEID,
// and takes along those that name none (a repair killed between the two
// steps left them, serving nobody) unless a repair is still making them. The link lives
// with the repair container, so it goes when that container is destroyed,
// survives agent restarts, and needs no file of the agent's that could
// disagree with the host; and the type-4 test keeps an ordinary container
// whose file happens to carry the key from ever being destroyed.
#include "KQSVEActionSystemLinux.h"

#include "KQSBashConfig.h"
#include "KQSCaches.h"
#include "KQSEnvLock.h"
#include "KQSEnvMLocal.h"
#include "KQSKqStatLocal.h"
#include "KQSResult.h"

#include "KQC/Beneath.h"
#include "KQC/Error.h"
#include "KQC/Files.h"
#include "KQC/HostPaths.h"

#include <map>
#include <string>
#include <sys/stat.h>

namespace KQS {
namespace {

typedef KQSVEActionSystemLinux Actions;

const unsigned int kToolLimit = 80000;
const int kFirstRepairVeid = 10000000;
const int kStartingRepair = 11;  // the transition written into the lock file
const int kVETypeDefault = 0;
const int kVETypeForRepair = 4;
const int kVETypeRepaired = 5;
const int kMigrationLocked = 9;  // the migration tool's exit code for a locked source
const uint64_t kDiskHeadroom = 10000;
const char* const kRepairedVeidKey = "REPAIRED_VEID";
// Whether repair switched the container's offline management off, so that
// stop-repair switches it on again: the container's own file says "no" by
// then.
const char* const kRepairedOfflineKey = "REPAIRED_OFFLINE_MANAGEMENT";
// The accounts a repair container takes over, in the order they are copied.
const char* const kAccountFiles[] = {"etc/passwd", "etc/shadow", "etc/group"};

std::string repairFile(const char* name)
{
    return KQC::KQCInstanceFolders::etc().leaf("repair").leaf(name).string();
}

std::string migrationArgument(int source, int target, const std::string& a, const std::string& b)
{
    return std::to_string(source) + ":" + (target ? std::to_string(target) : std::string()) + ":" + a + ":" + b;
}

// Runs kqmlocal with progress to the client. Whatever the outcome, every
// container named may have changed (a failed run may have done half).
int runMigration(KQSEnvMLocal& envm, KQC::ExecutionArgs& args, const std::set<int>& touched, const char* what,
                 int veid)
{
    KQC::HWExec exec;
    int status = Actions::setHWExecProgessOutput(exec, envm).execWithError(args.toArgs(), 0, kToolLimit);
    for (int container : touched)
        invalidateContainer(container);
    if (status == 0)
        return KQS_OK;
    std::string toolError = KQC::getErrorMessage();
    KQC::setErrorMessage("kqmlocal %s Container#%d failed: %s", what, veid, toolError.c_str());
    return (status & 0xFF00) == (kMigrationLocked << 8) ? KQS_MIGRATE_ERR_LOCKED : KQS_MIGRATE_FAILED;
}

int readFailure(int veid, const char* what)
{
    KQC::setErrorMessage("Error reading Container %d configuration file. Attempt to read %s value.", veid, what);
    return KQS_ERR_READ;
}

// The private area a container's configuration file names, or "" (with the
// message of getPrivateDir) when it has none.
std::string privateDirOf(int veid)
{
    std::string dir;
    if (Actions::getPrivateDir(veid, &dir) != 0)
        return std::string();
    return dir;
}

// Where a container keeps its configuration: inside a private area of
// layout 4, in the configuration folder otherwise.
std::string configPlace(int veid, const std::string& privateDir)
{
    if (Actions::getVEPrivateLayoutVersion(privateDir) == 4)
        return privateDir + "/ve.conf";
    return Actions::getVPSSystemConfigPathByVeid(veid);
}

std::string fileTreeOf(const std::string& privateDir)
{
    return privateDir + (Actions::getVEPrivateLayoutVersion(privateDir) == 4 ? "/fs/root" : "/root");
}

// The repair container's VEID: the first one from 10000000 up that no
// container has.
int chooseRepairVeid(const std::set<int>& taken)
{
    int veid = kFirstRepairVeid;
    for (auto it = taken.lower_bound(veid); it != taken.end() && *it == veid; ++it)
        ++veid;
    return veid;
}

// One property, specified or not. `Owner` is the class that declares the
// property (the framework's or the management library's configuration).
template <class Owner, class T>
void copyProperty(const KQSEnvConfig& from, KQSEnvConfig& to, int (Owner::*get)(KQC::KQCOptionalProperty<T>&) const,
                  void (Owner::*set)(const KQC::KQCOptionalProperty<T>&))
{
    KQC::KQCOptionalProperty<T> value;
    (from.*get)(value);
    (to.*set)(value);
}

// The repaired container's network settings, OS template, host name and
// flags, in the order the repair container takes them.
void takeSettings(const KQSEnvConfig& from, KQSEnvConfig& to)
{
    copyProperty(from, to, &KQSEnvConfig::getQoSes, &KQSEnvConfig::setQoSes);
    copyProperty(from, to, &KQSEnvConfig::getNetVEths, &KQSEnvConfig::setNetVEths);
    copyProperty(from, to, &KQSEnvConfig::getRatesList, &KQSEnvConfig::setRatesList);
    copyProperty(from, to, &KQSEnvConfig::getAddresses, &KQSEnvConfig::setAddresses);
    copyProperty(from, to, &KQSEnvConfig::getNameservers, &KQSEnvConfig::setNameservers);
    copyProperty(from, to, &KQSEnvConfig::getSearchDomains, &KQSEnvConfig::setSearchDomains);
    copyProperty(from, to, &KQSEnvConfig::getOsTemplate, &KQSEnvConfig::setOsTemplate);
    copyProperty(from, to, &KQSEnvConfig::getHostname, &KQSEnvConfig::setHostname);
    copyProperty(from, to, &KQSEnvConfig::getOnBoot, &KQSEnvConfig::setOnBoot);
    copyProperty(from, to, &KQSEnvConfig::getOfflineManagement, &KQSEnvConfig::setOfflineManagement);
}

bool offlineManagementOn(const KQSEnvConfig& config)
{
    KQC::KQCOptionalProperty<bool> offline;
    config.getOfflineManagement(offline);
    return offline.isSpecified() && offline.get();
}

void setQoS(KQSEnvConfig& config, const std::string& id, uint64_t value)
{
    KQC::KQCOptionalProperty<KQC::KQCQoSSet> qoses;
    config.getQoSes(qoses);
    KQC::KQCQoSSet entries = qoses.get();
    entries.erase(KQC::KQCQoS(id, 0));
    entries.insert(KQC::KQCQoS(id, value));
    config.setQoSes(entries);
}

// Records in the repair container's file which container it serves (see
// the top of this file) and whether that one's offline management was on.
// Keeps everything else the file holds.
int recordRepairedVeid(int repairVeid, int veid, bool offlineManagement)
{
    std::string privateDir = privateDirOf(repairVeid);
    boost::shared_ptr<KQSRawConfigBashParser> parser = KQSRawConfigBashParser::getInstance();
    if (privateDir.empty() || !parser)
        return KQS_ERR_WRITE;
    std::map<std::string, std::string> values{{kRepairedVeidKey, std::to_string(veid)},
                                              {kRepairedOfflineKey, offlineManagement ? "yes" : "no"}};
    int rc = putBashConfig(configPlace(repairVeid, privateDir).c_str(), *parser, values, true);
    invalidateContainer(repairVeid);
    return rc == 0 ? KQS_OK : KQS_ERR_WRITE;
}

// The container's accounts, read beneath its file tree so that a link the
// container planted there cannot hand us a host file. A file that cannot be
// copied is left as the repair container had it.
void copyAccounts(const std::string& sourceRoot, const std::string& targetRoot)
{
    for (const char* name : kAccountFiles) {
        std::string data;
        if (KQC::readFileBeneath(sourceRoot, name, data) == 0)
            (void)KQC::writeFileBeneath(targetRoot, name, data);
    }
}

void replaceMotd(const std::string& targetRoot)
{
    (void)KQC::removeFileBeneath(targetRoot, "etc/motd");
    std::string text;
    if (KQC::file2str(repairFile("motd.sample"), text) == 0)
        (void)KQC::writeFileBeneath(targetRoot, "etc/motd", text);
}

// A repair container that records no container: its repair died between
// creating it and recording whom it serves, so it serves nobody. One whose
// transition lock a live process holds is a repair still on its way.
bool isOrphan(int repairVeid)
{
    KQSVPSList list;
    list[repairVeid] = KQSVPSEntry();
    if (Actions::getVPSList(list, false, true) != 0)
        return false;
    auto it = list.find(repairVeid);
    return it != list.end() && it->second.transition == 0;
}

bool recordedOfflineManagement(int repairVeid)
{
    boost::shared_ptr<KQSRawConfigBashParser> parser = KQSRawConfigBashParser::getInstance();
    std::map<std::string, std::string> values;
    std::string path = Actions::getVPSSystemConfigPathByVeid(repairVeid);
    return parser && getBashConfig(path.c_str(), *parser, values) == 0 && values[kRepairedOfflineKey] == "yes";
}

// Removes a repair-time action script when it is still the one repair put
// there; a script somebody changed since is theirs to keep.
void removeRepairScript(const std::string& privateDir, const char* name, const char* sample)
{
    std::string installed, original;
    std::string path = privateDir + "/scripts/" + name;
    if (KQC::file2str(path, installed) == 0 && KQC::file2str(repairFile(sample), original) == 0 &&
        installed == original)
        (void)KQC::removeFile(path);
}

// Stops, unmounts and destroys the repair container, as far as its state
// asks for each.
int takeDownRepairContainer(KQSEnvMLocal& envm, int repairVeid)
{
    KQSVPSList list;
    list[repairVeid] = KQSVPSEntry();
    if (Actions::getVPSList(list, false, true) != 0)
        return KQS_ERR_GENERIC;
    auto it = list.find(repairVeid);
    const int state = it == list.end() ? KQC::ENV_STATE_UNKNOWN : it->second.state;
    int rc = KQS_OK;
    if (state == KQC::ENV_STATE_RUNNING)
        rc = Actions::action(envm, repairVeid, Actions::CmdType("stop", true));
    if (rc == KQS_OK && (state == KQC::ENV_STATE_RUNNING || state == KQC::ENV_STATE_MOUNTED))
        rc = Actions::action(envm, repairVeid, Actions::CmdType("umount", true));
    if (rc == KQS_OK)
        rc = Actions::action(envm, repairVeid, Actions::CmdType("destroy", true));
    return rc;
}

} // namespace

int KQSVEActionSystemLinux::move(KQSEnvMLocal& envm, int veid, int newVeid, const std::string& a,
                                 const std::string& b)
{
    return KQC::guardedCall("move", [&]() -> int {
        KQC::ExecutionArgs args;
        args.push_back("kqmlocal", false);
        args.push_back("-s", false);
        args.push_back(migrationArgument(veid, newVeid, a, b));
        return runMigration(envm, args, {veid, newVeid}, "move", veid);
    });
}

int KQSVEActionSystemLinux::clone(KQSEnvMLocal& envm, int veid, std::set<int> newVeids, const std::string& a,
                                  const std::string& b)
{
    return KQC::guardedCall("clone", [&]() -> int {
        // A broken precondition of the caller: refused, not a reason to take
        // the agent down.
        if (newVeids.empty()) {
            KQC::setErrorMessage("assertion failed: newVeids.size() > 0");
            return KQS_ERR_GENERIC;
        }
        const int first = *newVeids.begin();
        KQC::ExecutionArgs args;
        args.push_back("kqmlocal", false);
        args.push_back("-C", false);
        // Only the first copy is made from the source; the others from it.
        for (int target : newVeids)
            args.push_back(target == first ? migrationArgument(veid, first, a, b)
                                           : migrationArgument(first, target, a, b));
        std::set<int> touched = newVeids;
        touched.insert(veid);
        return runMigration(envm, args, touched, "clone", veid);
    });
}

int KQSVEActionSystemLinux::repair(KQSEnvMLocal& envm, KQSEnvConfig& repaired)
{
    return KQC::guardedCall("repair", [&] { return repairSteps(envm, repaired); });
}

int KQSVEActionSystemLinux::stopRepair(KQSEnvMLocal& envm, KQSEnvConfig& repaired)
{
    return KQC::guardedCall("stopRepair", [&] { return stopRepairSteps(envm, repaired); });
}

int KQSVEActionSystemLinux::findRepairContainers(int veid, std::set<int>* repairVeids)
{
    return KQC::guardedCall("findRepairContainers", [&]() -> int {
        std::set<int> veids;
        if (getVeidList(veids) != 0)
            return KQS_ERR_GENERIC;
        boost::shared_ptr<KQSRawConfigBashParser> parser = KQSRawConfigBashParser::getInstance();
        if (!parser) {
            KQC::setErrorMessage("Can't get config parser");
            return KQS_ERR_GENERIC;
        }
        const std::string wanted = std::to_string(veid);
        for (auto it = veids.lower_bound(kFirstRepairVeid); it != veids.end(); ++it) {
            std::map<std::string, std::string> values;
            std::string path = getVPSSystemConfigPathByVeid(*it);
            // One unreadable file is that container's problem, not the search's.
            if (getBashConfig(path.c_str(), *parser, values) != 0)
                continue;
            if (values["VE_TYPE"] != std::to_string(kVETypeForRepair))
                continue;
            const std::string& serves = values[kRepairedVeidKey];
            if (serves == wanted || (serves.empty() && isOrphan(*it)))
                repairVeids->insert(*it);
        }
        return KQS_OK;
    });
}

int KQSVEActionSystemLinux::saveConfig(const KQSEnvConfig& config, const std::string& privateDir)
{
    int veid = 0;
    if (config.getVeid(veid) != 0) {
        KQC::setErrorMessage("veid is absent.");
        return KQS_ERR_NO_VEID;
    }
    boost::shared_ptr<KQSEnvConfigBashParser> parser = KQSEnvMLocal::getLocalEnvConfigParser();
    if (!parser) {
        KQC::setErrorMessage("Can't get config parser");
        return KQS_ERR_WRITE;
    }
    int rc = putBashConfig(configPlace(veid, privateDir).c_str(), *parser, config, true);
    invalidateContainer(veid);
    return rc == 0 ? KQS_OK : KQS_ERR_WRITE;
}

int KQSVEActionSystemLinux::setVESampleScript(std::string privateDir, const char* name, const char* samplePath)
{
    std::string text;
    if (KQC::file2str(samplePath, text) != 0)
        return KQS_ERR_GENERIC;
    // A private area put back from an old backup may lack the folder.
    (void)KQC::mkDeepDir(privateDir + "/scripts", 0755);
    std::string target = privateDir + "/scripts/" + name;
    return KQC::writeFileAtomic(target, text, 0755) == 0 ? KQS_OK : KQS_ERR_GENERIC;
}

int KQSVEActionSystemLinux::markType(int veid, int type, std::string& privateDir)
{
    privateDir = privateDirOf(veid);
    if (privateDir.empty())
        return readFailure(veid, "ve_private");
    KQSEnvConfig mark;
    mark.setVeid(veid);
    mark.setVEType(type);
    return Actions::saveConfig(mark, privateDir);
}

int KQSVEActionSystemLinux::repairSteps(KQSEnvMLocal& envm, KQSEnvConfig& repaired)
{
    int veid = 0;
    if (repaired.getVeid(veid) != 0) {
        KQC::setErrorMessage("veid is absent.");
        return KQS_ERR_NO_VEID;
    }
    std::set<int> taken;
    if (Actions::getVeidList(taken) != 0)
        return KQS_ERR_GENERIC;
    const int repairVeid = chooseRepairVeid(taken);
    // Held to the end, whatever the result: a second repair cannot take the
    // same VEID before its configuration file exists.
    KQSEnvLock lock(repairVeid, kStartingRepair);
    if (lock.lock() != 0) {
        KQC::setErrorMessage("Cant lock repair Container");
        return KQS_REPAIR_ERR_LOCK;
    }
    boost::shared_ptr<KQSEnvConfigBashParser> parser = KQSEnvMLocal::getLocalEnvConfigParser();
    if (!parser) {
        KQC::setErrorMessage("Can't get config parser");
        return KQS_ERR_WRITE;
    }
    KQSEnvConfig repairConfig;
    int rc = getBashConfig(repairFile("repairve.conf").c_str(), *parser, repairConfig);
    if (rc != 0) {
        KQC::setErrorMessage("Error reading 'repairve.conf' configuration file");
        return rc;
    }
    takeSettings(repaired, repairConfig);
    KQC::KQCOptionalProperty<KQSTemplate> osTemplate;
    repairConfig.getOsTemplate(osTemplate);
    if (!osTemplate.isSpecified())
        return readFailure(veid, "OSTEMPLATE");

    repairConfig.setVEType(kVETypeForRepair);
    rc = Actions::create(envm, repairVeid, repairConfig, true);
    if (rc != KQS_OK)
        return rc;
    // At once, so that an interrupted repair still leaves a repair container
    // that stop-repair can find.
    rc = recordRepairedVeid(repairVeid, veid, offlineManagementOn(repaired));
    if (rc != KQS_OK)
        return rc;

    std::string privateDir;
    rc = Actions::markType(veid, kVETypeRepaired, privateDir);
    if (rc != KQS_OK)
        return rc;

    KQSQuotaStats quota;
    KQSKqStatLocal stats{KQC::KQCAccessProvider()};
    rc = stats.getQuota(repairVeid, &quota);
    if (rc != KQS_OK)
        return rc;
    setQoS(repairConfig, "diskspace", quota.blockUsage + kDiskHeadroom);
    setQoS(repairConfig, "diskinodes", quota.inodeUsage + kDiskHeadroom);
    repairConfig.setVeid(repairVeid);
    const std::string repairPrivateDir = privateDirOf(repairVeid);
    if (repairPrivateDir.empty())
        return readFailure(repairVeid, "ve_private");
    rc = Actions::saveConfig(repairConfig, repairPrivateDir);
    if (rc != KQS_OK)
        return rc;

    const std::string targetRoot = repairPrivateDir + "/fs/root";
    copyAccounts(fileTreeOf(privateDir), targetRoot);
    replaceMotd(targetRoot);

    if (Actions::setVESampleScript(privateDir, "mount", repairFile("mount-repair.sample").c_str()) != 0 ||
        Actions::setVESampleScript(privateDir, "umount", repairFile("umount-repair.sample").c_str()) != 0) {
        KQC::setErrorMessage("Error copying script files from Container %d to Container %d", veid, repairVeid);
        return KQS_ERR_TOOL;
    }
    // The private area changed beneath the configuration file's stamp.
    invalidateContainer(veid);
    if (offlineManagementOn(repaired) && Actions::setOfflineManagement(envm, veid, false, true) != KQS_OK) {
        std::string why = KQC::getErrorMessage();
        KQC::setErrorMessage("unset offline management: %s", why.c_str());
        return KQS_ERR_TOOL;
    }
    return Actions::action(envm, repairVeid, Actions::CmdType("start", true));
}

int KQSVEActionSystemLinux::stopRepairSteps(KQSEnvMLocal& envm, KQSEnvConfig& repaired)
{
    int veid = 0;
    if (repaired.getVeid(veid) != 0) {
        KQC::setErrorMessage("ctid is absent.");
        return KQS_ERR_NO_VEID;
    }
    KQC::KQCOptionalProperty<int> type;
    repaired.getVEType(type);
    if (!type.isSpecified() || type.get() != kVETypeRepaired) {
        KQC::setErrorMessage("unknown Container %d type.", veid);
        return KQS_ERR_NO_VEID;
    }
    boost::shared_ptr<KQSEnvConfigBashParser> parser = KQSEnvMLocal::getLocalEnvConfigParser();
    if (!parser) {
        KQC::setErrorMessage("Can't get config parser");
        return KQS_ERR_WRITE;
    }
    KQSEnvConfig onHost;
    std::string path = Actions::getVPSSystemConfigPathByVeid(veid);
    int rc = getBashConfig(path.c_str(), *parser, onHost);
    if (rc != 0) {
        KQC::setErrorMessage("Error reading Container %d configuration file.", veid);
        return rc;
    }
    // A repair interrupted before its repair container was made (or
    // recorded) leaves none to take down: the mark is cleared all the same.
    // One interrupted after it and asked again leaves two.
    std::set<int> repairVeids;
    if (Actions::findRepairContainers(veid, &repairVeids) != KQS_OK)
        return KQS_ERR_GENERIC;
    bool offlineManagement = offlineManagementOn(repaired);
    for (int repairVeid : repairVeids) {
        offlineManagement = offlineManagement || recordedOfflineManagement(repairVeid);
        rc = takeDownRepairContainer(envm, repairVeid);
        if (rc != KQS_OK)
            return rc;
    }
    std::string privateDir;
    rc = Actions::markType(veid, kVETypeDefault, privateDir);
    if (rc != KQS_OK)
        return rc;
    removeRepairScript(privateDir, "mount", "mount-repair.sample");
    removeRepairScript(privateDir, "umount", "umount-repair.sample");
    invalidateContainer(veid);
    if (offlineManagement)
        (void)Actions::setOfflineManagement(envm, veid, true, true);
    return KQS_OK;
}

} // namespace KQS
