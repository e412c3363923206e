#pragma once
// The platform-bound work on containers: command lines run through the
// control tool, and the enumeration of containers with their states.
//
// A class of static operations only. Operations return 0 or a negative
// result code with the thread's error message set; none throws.
#include "KQC/Env.h"
#include "KQC/Exec.h"
#include "KQS/EnvConfig.h"
#include "KQS/PathModTime.h"

#include <boost/shared_ptr.hpp>
#include <map>
#include <set>
#include <string>

namespace KQS {

class KQSEnvMLocal;

// One adapter's wanted state against its current one: a single
// `kqctl --quiet set VEID --ifname NAME ... --save` run with the changed
// options (none when nothing changed), plus a container-wide name-server
// run when those changed. 0, -1 or -6 with the message set.
int compareVEthAdapters(KQSEnvMLocal& envm, int veid, const KQSNetVEth& wanted, const KQSNetVEth& current);
// The difference walk: removals, then additions, then comparisons.
int applyVEthDifference(KQSEnvMLocal& envm, int veid, const KQC::KQCOptionalProperty<KQSNetVEthList>& current,
                        const KQC::KQCOptionalProperty<KQSNetVEthList>& wanted);

// The address options of a tool run: "--dhcp yes|no" (and "--dhcp6 yes|no"
// on a host with IPv6) when `withDhcp`, then "--ipdel all" and "--ipadd
// ADDR/NETWORK" for each address the DHCP filter keeps: no static address
// of a family that uses DHCP, no IPv6 address on a host without IPv6.
// Always 0.
int setIPAddressCreateParameters(KQC::ExecutionArgs* args, const std::vector<KQC::KQCIPAddress>& addresses,
                                 bool dhcp4, bool dhcp6, bool withDhcp);

// One container as the enumeration found it.
struct KQSVPSEntry {
    int state = KQC::ENV_STATE_UNKNOWN;
    int transition = 0;
    boost::shared_ptr<KQSEnvConfig> config;  // empty until read
    KQSPathModTime modTime;                  // of the configuration file
};
typedef std::map<int, KQSVPSEntry> KQSVPSList;
// VEID -> why its configuration file could not be read (the text names the
// file): containers whose file is there but unusable.
typedef std::map<int, std::string> KQSUnreadableList;

// Lock-file word -> transition ("creating" -> 2, ..., "" -> 0).
extern const std::map<std::string, int> VPSTransitionsMapLinux;

class KQSVEActionSystemLinux {
public:
    // The control tool's action words.
    static const char* const START;
    static const char* const STOP;
    static const char* const MOUNT;
    static const char* const UMOUNT;
    static const char* const DESTROY;
    static const char* const RESTART;
    static const char* const SUSPEND;
    static const char* const RESUME;

    // An action command: its word and whether the tool should skip the
    // container lock (the caller holds it).
    class CmdType {
    public:
        CmdType(const char* name, bool skipLock) : m_name(name), m_skipLock(skipLock) {}
        virtual ~CmdType() = default;
        virtual void getPrefixParams(KQC::ExecutionArgs& args) const;
        virtual void getParams(KQC::ExecutionArgs& args) const;
        const char* name() const { return m_name; }

    private:
        const char* m_name;
        bool m_skipLock;
    };

    // A stop never skips the lock; `fast` adds "--fast".
    class StopCmdType : public CmdType {
    public:
        StopCmdType(const char* name, bool fast) : CmdType(name, false), m_fast(fast) {}
        void getParams(KQC::ExecutionArgs& args) const override;

    private:
        bool m_fast;
    };

    // Runs `kqctl [--skiplock] WORD VEID [--fast]` with the tool's output as
    // the client's progress. 0, or -104/-103/-105 for the tool's exit codes
    // 31/32/78, -6 for any other failure ("kqctl %s %d failed: %s").
    static int action(KQSEnvMLocal& envm, int veid, const CmdType& cmd);
    // Makes `exec`'s output lines the progress of the request `envm` serves.
    static KQC::GenExec& setHWExecProgessOutput(KQC::HWExec& exec, KQSEnvMLocal& envm);
    // "/etc/sysconfig/kq-scripts/VEID.conf" (under the host root).
    static std::string getVPSSystemConfigPathByVeid(int veid);

    // Enumeration.
    static int getVPSList(KQSVPSList& list, bool skipForRepair, bool onlyGiven);
    // As above; `unreadable` (may be null) is filled with the containers
    // left out of `list` because their configuration file exists but cannot
    // be read. A file that is not there at all is not among them.
    static int getVPSList(KQSVPSList& list, bool skipForRepair, bool onlyGiven, KQSUnreadableList* unreadable);
    static int getVeidList(std::set<int>& veids);
    static int getRunVPSList(std::set<int>& veids);
    static int getMountedVPSList(std::set<int>& veids);
    static int getVPSTransition(const std::string& lockDir, int veid, int* transition);
    static int getVPSTransitionByString(const std::string& word);
    static bool isVPSExist(const boost::shared_ptr<KQSEnvConfig>& config);
    static bool isVPSRepaired(const boost::shared_ptr<KQSEnvConfig>& config);
    static bool isVPSForRepair(const boost::shared_ptr<KQSEnvConfig>& config);
    static bool isVPSForTempOper(const boost::shared_ptr<KQSEnvConfig>& config);
    static int getActualParametersForVEth(KQSEnvConfig& config);
    static int getPrivateDir(int veid, std::string* dir);
    static int getRootDir(int veid, std::string* dir);
    static int getVEPrivateLayoutVersion(const std::string& privateDir);

    // Creating and configuring (KQSVEActionSystemLinuxCreate.cpp). The
    // wanted configuration travels to the tool as a throw-away sample that
    // is deleted again on every path; only what a sample cannot carry is
    // given as options. Tool runs report their output as the request's
    // progress.
    //
    // `kqctl [--skiplock] create VEID --config SAMPLE [--name N]`. 0; -9
    // when the sample cannot be written; -101/-105/-6 for the tool's exit
    // codes 44/78/other ("kqctl create %d failed: %s").
    static int create(KQSEnvMLocal& envm, int veid, const KQSEnvConfig& config, bool skipLock);
    // `kqctl unset VEID --save ...` when `unsetKeys` is not empty, then
    // `kqctl set VEID --save [--setmode M] [addresses] [--hostname H]
    // [--name N] [--description D] --applyconfig SAMPLE`. 0, -6 ("kqctl
    // unset|set %d failed: %s"), -105 (exit 78), -9 (no sample) or
    // setupIPAddresses' failure.
    static int setEnv(KQSEnvMLocal& envm, int veid, const KQSEnvConfig& config,
                      const std::set<std::string>& unsetKeys, const char* setMode);
    // Appends the address options for the configuration's addresses
    // (none when the default host-routed adapter owns them). 0.
    static int setupIPAddresses(KQSEnvMLocal& envm, int veid, const KQSEnvConfig& config,
                                KQC::ExecutionArgs& args);
    // `kqctl set VEID --save --userpasswd USER:PASSWORD` (an empty user is
    // root). 0, or -6 with a message that names the user, never the
    // password.
    static int setUserPassword(KQSEnvMLocal& envm, int veid, const std::string& user, const std::string& password);
    // `kqctl [--skiplock] set VEID --save --offline_management yes|no`. 0 or -6.
    static int setOfflineManagement(KQSEnvMLocal& envm, int veid, bool enable, bool skipLock);

    // Brings the container's adapters to `adapters`: removes the ones not
    // wanted (never the default host-routed "venet0"), adds the new ones,
    // and changes the others option by option
    // (KQSVEActionSystemLinuxVEth.cpp). -1 for an unspecified list or more
    // than one host-routed adapter (nothing is run then), or when a changed
    // adapter cannot be set; failed removals and additions do not stop it.
    static int setVEthDeviceConfig(KQSEnvMLocal& envm, int veid,
                                   const KQC::KQCOptionalProperty<KQSNetVEthList>& adapters);

    // Repair, move and clone (KQSVEActionSystemLinuxRepair.cpp): operations
    // on more than one container. The migration tool's argument for a pair
    // is "SRC:DST:A:B" (DST empty when 0); A and B are passed on unchanged.
    //
    // `kqmlocal -s VEID:NEW:A:B`. 0; -101 when the tool exits 9, 1 (not a
    // negative code) for any other failure ("kqmlocal move Container#%d
    // failed: %s").
    static int move(KQSEnvMLocal& envm, int veid, int newVeid, const std::string& a, const std::string& b);
    // `kqmlocal -C VEID:FIRST:A:B FIRST:D:A:B...`: the smallest new VEID is
    // copied from the source, every other one from that first copy. Results
    // as for move ("kqmlocal clone Container#%d failed: %s"); an empty set is
    // refused with -1 before anything runs.
    static int clone(KQSEnvMLocal& envm, int veid, std::set<int> newVeids, const std::string& a,
                     const std::string& b);
    // Puts the container `repaired` names (its VEID) under repair: a repair
    // container (type 4, VEID from 10000000 up) is created from the repair
    // files with the container's network settings and accounts and
    // started, and the container is marked (type 5). Holds the transition
    // lock of the repair VEID throughout. A failure part-way undoes nothing:
    // what was made stays, for stop-repair to take away.
    static int repair(KQSEnvMLocal& envm, KQSEnvConfig& repaired);
    // Takes a container of type 5 out of repair: its repair container, when
    // there is one, is stopped, unmounted and destroyed, the mark and the
    // repair-time scripts go, and offline management is switched on again
    // when the container had it. 0, -7 ("ctid is absent." / "unknown Container %d type."), -9,
    // -4, or the failed action's result.
    static int stopRepair(KQSEnvMLocal& envm, KQSEnvConfig& repaired);
    // The repair containers serving the container `veid` (one, unless a
    // repair was interrupted and asked again), with those that serve nobody
    // and are not being made. 0 (the set may be empty) or -1 when the
    // configuration folder cannot be read.
    static int findRepairContainers(int veid, std::set<int>* repairVeids);

    // Container root folder -> VEID, learnt whenever a configuration is read.
    static std::map<std::string, int> m_vpsRoots;

private:
    // Writes the configuration into the container's own file: PRIVATE/ve.conf
    // for a private area of layout 4, the configuration folder's VEID.conf
    // otherwise, keeping what the file holds beyond it. 0, -7 ("veid is
    // absent.") or -9.
    static int saveConfig(const KQSEnvConfig& config, const std::string& privateDir);
    // Copies a sample script to PRIVATE/scripts/NAME with mode 0755. 0 or -1.
    static int setVESampleScript(std::string privateDir, const char* name, const char* samplePath);
    // Records the container's type in the configuration its private area
    // keeps and gives that area's path. 0, -4 when the area cannot be
    // found ("Attempt to read ve_private"), or saveConfig's failure.
    static int markType(int veid, int type, std::string& privateDir);
    // The steps of repair and stopRepair, behind their exception boundary.
    static int repairSteps(KQSEnvMLocal& envm, KQSEnvConfig& repaired);
    static int stopRepairSteps(KQSEnvMLocal& envm, KQSEnvConfig& repaired);
};

} // namespace KQS
