#pragma once
// The plug-in's per-process caches of host files, all in one place, and the
// calls with which a writer says what it changed.
//
// What is kept, from the first use to the end of the process:
//  - the host settings file, parsed, with its stamp;
//  - per container (by VEID): its configuration file as the listing finished
//    it, with the file's stamp, and whether its private area held a dump
//    folder, with the area's stamp; the set of VEIDs that have a
//    configuration file, with the folder's stamp; the container roots
//    (root -> VEID, KQSVEActionSystemLinux::m_vpsRoots, only ever added to);
//  - per environment (by EID): what its agent-side file said (the VEID, and
//    the whole record while somebody holds it), with the file's stamp; the
//    registry's EID list and VEID -> EID map, each with the folder's stamp
//    and a "modified" flag.
//
// The EID record inside a container ("/.kqs/eid.conf") is not cached: it is
// read afresh each time, so writing it needs no call here.
//
// Every reader compares the stamps of the files behind what it keeps, so a
// change made by another process is seen at the next read. A stamp cannot
// see two writes of the same size within one tick of the file system's
// clock, so a writer in this process also calls one of these after writing
// (whether or not the write worked: a failed tool may have changed half):
//
//  - invalidateContainer(veid) after anything that may have changed a
//    container's configuration file, lock, private area or existence: a
//    control-tool run on it, creating, setting, moving, cloning or
//    destroying it. The VEID set is read again at its next use, the
//    container's configuration is parsed again. The registry's lists are
//    not touched: a writer of an agent-side file calls the next one too.
//  - invalidateEnvironment(eid) after writing or removing an environment's
//    agent-side file. The EID list and the VEID map are read again, the
//    record is parsed again.
//  - invalidateAll() when the host root changed or a writer cannot tell
//    which containers it touched.
//
// Thread safety: all three may be called from any thread at any time, but
// not while holding one of the locks below. Each takes those locks one at a
// time, never one inside another. They cannot fail and do no I/O.
#include "KQC/Access.h"
#include "KQC/GUID.h"
#include "KQC/Lock.h"
#include "KQS/EnvConfig.h"
#include "KQS/PathModTime.h"
#include "KQS/VtSettings.h"

#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace KQS {

void invalidateContainer(int veid);
void invalidateEnvironment(const KQC::KQCEID& eid);
void invalidateAll();

namespace caches {

// The remembered stamp of a folder, with the folder's path: a stamp says
// nothing about another folder (the host root may be another one by now).
struct FolderStamp {
    std::string folder;
    KQSPathModTime stamp;

    // Whether the folder changed since the last call (remembering it now).
    bool changed(const std::string& path);
    void forget();
};

// One container's configuration, finished by the listing as for a container
// that does not run. Shared with every listing that returns it, so it is
// never changed once stored; a listing that must change it copies it.
struct ParsedContainer {
    KQSPathModTime stamp;          // of the configuration file
    unsigned settingsGeneration = 0;  // of the host settings it was completed with
    boost::shared_ptr<const KQSEnvConfig> config;
    // The private area as last seen, and whether it then held a "dump"
    // folder: while the area is unchanged, no dump can have appeared in it.
    KQSPathModTime areaStamp;
    bool areaHasDumpFolder = true;
};

// The listing's caches. `lock` is held by a listing for its whole run;
// `veidsLock` by the scan of the configuration folder, which a listing
// makes while holding `lock` (always in that order).
struct Listing {
    std::mutex lock;
    std::string folder;  // the configuration folder `parsed` was read from
    std::map<int, ParsedContainer> parsed;
    // The host settings: the defaults merged into every configuration, and
    // the platform's own settings (lock and dump folders).
    KQSPathModTime settingsStamp;
    KQSEnvConfig defaults;
    KQSVtSettings settings;
    unsigned settingsGeneration = 0;  // counts the re-reads of the settings

    std::mutex veidsLock;
    FolderStamp veidsStamp;
    std::vector<int> veids;  // sorted: a set would cost a node per container
};

// An environment's agent-side record as last read: what the registry looks
// up for every environment of every listing (its VEID), and the whole
// record only while somebody holds it, since most are never asked for.
struct CachedRecord {
    KQSPathModTime stamp;
    bool read = false;        // the file was read at `stamp`
    bool unparsable = false;  // ... and did not parse: it reads as an empty record
    bool hasVeid = false;
    int veid = 0;
    boost::weak_ptr<KQSEnvConfig> config;  // shared: never changed once stored

    // Remembers what was read at `stamp`.
    void remember(const boost::shared_ptr<KQSEnvConfig>& record, bool parsed);
};

// The registry's caches. lockModify guards the flags, the EID list and the
// VEID map; configLock the records, always taken after lockModify when both
// are held.
struct Registry {
    KQC::KQCLock lockModify;
    bool isModifiedForGetEnvList = false;
    bool isModifiedForGetVEIDMap = false;
    KQC::KQCEIDSet envList;
    FolderStamp envListStamp;
    std::map<int, KQC::KQCEID> veidMap;
    FolderStamp veidMapStamp;

    KQC::KQCLock configLock;
    std::string recordsFolder;  // the folder `records` were read from
    std::map<KQC::KQCEID, CachedRecord, KQC::KQCEnvIDComparator> records;

    // The record of `eid` in `folder`, made empty when new; the records of
    // another folder are dropped first. The caller holds configLock.
    CachedRecord& recordOf(const std::string& folder, const KQC::KQCEID& eid);
};

Listing& listing();
Registry& registry();

} // namespace caches
} // namespace KQS
