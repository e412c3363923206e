#include "MountsM.h"

#include "KQSEnvMLocal.h"
#include "KQSResult.h"
#include "KQSVEActionSystemLinux.h"

#include "KQC/EnvCache.h"
#include "KQC/EnvConfig.h"
#include "KQC/Error.h"
#include "KQC/Exec.h"
#include "KQC/Files.h"
#include "KQC/HostPaths.h"
#include "KQS/EnvConfig.h"
#include "KQS/VtSettings.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <istream>
#include <mntent.h>
#include <ostream>
#include <sstream>
#include <sys/stat.h>

namespace KQS {
namespace {

const char* const kRootVariable = "$VE_ROOT";
const size_t kRootVariableLength = 8;
// The executor's limit for mount and umount: 800 seconds.
const unsigned kMountTimeLimit = 80000;

struct MountOperation {
    const char* name;
    const char* command;
};
const MountOperation kOperations[2] = {{"mount", "mount"}, {"umount", "umount"}};

bool validMode(int mode)
{
    return mode == MountsM::MOUNT || mode == MountsM::UMOUNT;
}

std::vector<std::string> tokens(const char* line)
{
    std::vector<std::string> out;
    const char* cursor = line;
    while (*cursor) {
        cursor += std::strspn(cursor, " \t\n");
        size_t length = std::strcspn(cursor, " \t\n");
        if (length == 0)
            break;
        out.emplace_back(cursor, length);
        cursor += length;
    }
    return out;
}

bool startsWith(const std::string& text, const std::string& prefix)
{
    return text.compare(0, prefix.size(), prefix) == 0;
}

// What an operation needs to know of its environment.
struct Target {
    bool host = false;
    int veid = 0;
    std::string root;
    std::string privatePath;
};

int failEnv(const KQC::KQCEID& eid, const char* why)
{
    KQC::setErrorMessage("can't use environment '%s': %s", eid.toString().c_str(), why);
    return KQS_MOUNT_ERR_ENV;
}

// The host is its own environment: VEID 0, its root and private area the
// host root.
int resolveTarget(const KQC::KQCEID& eid, Target& target)
{
    if (eid == KQC::KQCEID::EID_LOCAL) {
        target.host = true;
        target.veid = 0;
        target.root = KQC::hostRoot();
        target.privatePath = target.root;
        return 0;
    }
    boost::shared_ptr<KQC::KQCEnv> env = KQC::envCache()->getEnvCopy(eid);
    if (!env)
        return failEnv(eid, "not found");
    if (env->getStatus().state() != KQC::ENV_STATE_RUNNING)
        return failEnv(eid, "not running");
    if (!env->getConfig())
        return failEnv(eid, "no configuration");
    KQSEnvConfig config(*env->getConfig());
    if (config.getVeid(target.veid) != 0 || config.getVERoot(target.root) != 0 ||
        config.getVEPrivate(target.privatePath) != 0 || target.root.empty())
        return failEnv(eid, "no VEID, root or private area");
    return 0;
}

// A client's mount point lands beneath the environment's root: it must be
// absolute, hold no "." or ".." step, and no existing step may be a link
// (the container owns its tree and could point a link anywhere on the host).
int checkMountPoint(const std::string& root, const std::string& mountPoint)
{
    if (mountPoint.empty() || mountPoint[0] != '/') {
        KQC::setErrorMessage("can not create relative path '%s'", mountPoint.c_str());
        return KQS_MOUNT_ERR_MOUNT_POINT;
    }
    std::string path = root;
    std::istringstream steps(mountPoint);
    std::string step;
    while (std::getline(steps, step, '/')) {
        if (step.empty())
            continue;
        if (step == "." || step == "..") {
            KQC::setErrorMessage("mount point '%s' leaves its root", mountPoint.c_str());
            return KQS_MOUNT_ERR_MOUNT_POINT;
        }
        path += "/" + step;
        struct stat st;
        if (::lstat(path.c_str(), &st) == 0 && S_ISLNK(st.st_mode)) {
            KQC::setErrorMessage("mount point '%s' passes through a link", mountPoint.c_str());
            return KQS_MOUNT_ERR_MOUNT_POINT;
        }
    }
    return 0;
}

int runMountCommand(int mode, const KQC::KQCDevMountInfo& info, const std::string& fullPath)
{
    KQC::ExecutionArgs args;
    args.push_back(kOperations[mode].command);
    if (mode == MountsM::MOUNT) {
        args.push_back("-n");
        args.push_back("-t");
        args.push_back(info.getFsType());
        args.push_back(info.getDevice());
    }
    args.push_back(fullPath);
    KQC::HWExec exec;
    if (exec.execWithError(args.toArgs(), 0, kMountTimeLimit) != 0)
        return KQS_MOUNT_ERR_COMMAND;
    return 0;
}

// The script's new text, or "" when there is nothing to write (removing
// from a script that does not exist).
int updatedScript(const std::string& path, const KQC::KQCDevMountInfo& info, int mode, bool remove,
                  std::string& text)
{
    std::ostringstream out;
    if (int rc = MountsM::updateScript(out, path.c_str(), info, mode, remove))
        return rc;
    text = out.str();
    return 0;
}

int writeScript(const std::string& path, const std::string& text)
{
    if (text.empty())
        return 0;
    return KQC::writeFileAtomic(path, text, 0755) == 0 ? 0 : static_cast<int>(KQS_MOUNT_ERR_FILE);
}

int updateScripts(const Target& target, const KQC::KQCDevMountInfo& info, bool remove)
{
    // Both texts are made before either file is replaced, so a refused add
    // (-4) leaves both scripts as they were.
    std::string mountPath = MountsM::scriptPath(target.veid, target.privatePath, MountsM::MOUNT);
    std::string umountPath = MountsM::scriptPath(target.veid, target.privatePath, MountsM::UMOUNT);
    std::string mountText, umountText;
    if (int rc = updatedScript(mountPath, info, MountsM::MOUNT, remove, mountText))
        return rc;
    if (int rc = updatedScript(umountPath, info, MountsM::UMOUNT, remove, umountText))
        return rc;
    if (int rc = writeScript(mountPath, mountText))
        return rc;
    return writeScript(umountPath, umountText);
}

// The part of the host settings' VE_ROOT before the VEID: every container
// root lies beneath it.
int containerRootPrefix(std::string& prefix)
{
    KQSVtSettings settings;
    KQSEnvMLocal envM{KQC::KQCAccessProvider()};
    std::string veRoot;
    if (envM.getVtSettings(settings) != 0 || settings.getParam("ve_root", veRoot) != 0) {
        KQC::setErrorMessage("can't read the host's VE_ROOT");
        return KQS_MOUNT_ERR_ENV;
    }
    size_t variable = veRoot.find("$VEID");
    if (variable == std::string::npos)
        variable = veRoot.find("${VEID}");
    if (variable == std::string::npos) {
        KQC::setErrorMessage("the host's VE_ROOT '%s' holds no $VEID", veRoot.c_str());
        return KQS_MOUNT_ERR_ENV;
    }
    prefix = veRoot.substr(0, variable);
    return 0;
}

// Active mounts of the kernel's table that belong to the target.
int activeMounts(const Target& target, const std::string& prefix, const KQC::KQCDeviceInfo& devices,
                 std::vector<KQC::KQCDevMountInfo>& out)
{
    std::string text;
    if (KQC::file2str(KQC::hostPath("/proc/mounts"), text) != 0)
        return KQS_MOUNT_ERR_MOUNT_TABLE;
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        std::istringstream fields(line);
        std::string device, point, type;
        if (!(fields >> device >> point >> type))
            continue;
        if (target.host && startsWith(point, prefix))
            continue;
        if (!startsWith(point, target.root))
            continue;
        if (!KQC::includedInInfo(devices, device))
            continue;
        point = point.substr(target.root.size());
        // "/x/101" is the root of 101, not of 1010.
        if (point.empty() || point[0] != '/')
            continue;
        KQC::insertUnique(out, KQC::KQCDevMountInfo(device, point, type, false, true));
    }
    return 0;
}

KQC::KQCDevMountInfo* findByPoint(std::vector<KQC::KQCDevMountInfo>& mounts, const std::string& point)
{
    for (KQC::KQCDevMountInfo& mount : mounts)
        if (mount.getMountPoint() == point)
            return &mount;
    return nullptr;
}

void addRecorded(std::vector<KQC::KQCDevMountInfo>& out, const KQC::KQCDevMountInfo& mount)
{
    if (KQC::KQCDevMountInfo* listed = findByPoint(out, mount.getMountPoint()))
        listed->setPersistent(true);
    else
        out.push_back(mount);
}

// Mounts the container's mount script records.
void scriptMounts(const Target& target, const KQC::KQCDeviceInfo& devices, std::vector<KQC::KQCDevMountInfo>& out)
{
    std::string text;
    // A container without a script records nothing.
    if (KQC::file2str(MountsM::scriptPath(target.veid, target.privatePath, MountsM::MOUNT), text) != 0)
        return;
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        size_t start = line.find_first_not_of(' ');
        if (start == std::string::npos || line[start] == '#')
            continue;
        KQC::KQCDevMountInfo mount;
        mount.setFsType("auto");
        if (MountsM::readMountStr(line.c_str() + start, MountsM::MOUNT, mount) != 0)
            continue;
        if (!KQC::includedInInfo(devices, mount.getDevice()))
            continue;
        mount.setPersistent(true);
        mount.setMounted(false);
        addRecorded(out, mount);
    }
}

bool typeAcceptable(const KQC::KQCDeviceInfo& devices, const std::string& types)
{
    std::istringstream list(types);
    std::string type;
    while (std::getline(list, type, ','))
        if (type == "auto" || KQC::fsTypeKnown(devices, type))
            return true;
    return false;
}

// Mounts the host's file-system table holds; a "noauto" entry is listed but
// not persistent.
int tableMounts(const KQC::KQCDeviceInfo& devices, std::vector<KQC::KQCDevMountInfo>& out)
{
    std::string text;
    if (KQC::file2str(KQC::hostPath("/etc/fstab"), text) != 0)
        return KQS_MOUNT_ERR_MOUNT_TABLE;
    if (text.empty())
        return 0;
    // The C library's own table reader, over our bounded copy of the file.
    FILE* table = ::fmemopen(&text[0], text.size(), "r");
    if (!table) {
        KQC::setErrorMessage("can't read the file-system table: %m");
        return KQS_MOUNT_ERR_MOUNT_TABLE;
    }
    struct mntent entry;
    char buffer[8192];
    while (::getmntent_r(table, &entry, buffer, sizeof buffer)) {
        if (!typeAcceptable(devices, entry.mnt_type))
            continue;
        if (!findByPoint(out, entry.mnt_dir))
            out.push_back(KQC::KQCDevMountInfo(entry.mnt_fsname, entry.mnt_dir, entry.mnt_type, false, false));
        if (!std::strstr(entry.mnt_opts, "noauto"))
            findByPoint(out, entry.mnt_dir)->setPersistent(true);
    }
    ::fclose(table);
    return 0;
}

bool blankOrComment(const std::string& line)
{
    size_t start = line.find_first_not_of(" \t");
    return start == std::string::npos || line[start] == '#';
}

std::string secondField(const std::string& line)
{
    std::istringstream fields(line);
    std::string first, second;
    fields >> first >> second;
    return second;
}

} // namespace

int MountsM::readMountStr(const char* line, int mode, KQC::KQCDevMountInfo& info)
{
    if (!line || !validMode(mode))
        return -1;
    const std::string command = kOperations[mode].command;
    int state = 0;
    std::string point;
    for (const std::string& token : tokens(line)) {
        if (state == 0) {
            if (!startsWith(token, command))
                return -1;
            state = mode == UMOUNT ? 3 : 1;
        } else if (state == 1) {
            if (token == "-n")
                continue;
            if (token == "-t")
                state = 2;
            else if (token[0] == '-')
                return -1;
            else {
                info.setDevice(token);
                state = 3;
            }
        } else if (state == 2) {
            info.setFsType(token);
            state = 1;
        } else {
            point = token;
            state = 4;
            break;
        }
    }
    if (state != 4 || !startsWith(point, kRootVariable))
        return -1;
    info.setMountPoint(point.substr(kRootVariableLength));
    info.setPersistent(true);
    return 0;
}

std::string MountsM::setMountStr(int mode, const KQC::KQCDevMountInfo& info)
{
    std::string line = kOperations[mode].command;
    line += " ";
    if (mode == MOUNT)
        line += "-n -t " + info.getFsType() + " " + info.getDevice() + " ";
    return line + kRootVariable + info.getMountPoint();
}

int MountsM::processMountInFile(std::istream& in, std::ostream& out, const KQC::KQCDevMountInfo& info, int mode,
                                int remove)
{
    std::string line;
    while (std::getline(in, line)) {
        KQC::KQCDevMountInfo parsed;
        if (readMountStr(line.c_str(), mode, parsed) == 0 && parsed.getMountPoint() == info.getMountPoint()) {
            if (!remove) {
                KQC::setErrorMessage("mount point '%s' is recorded already", info.getMountPoint().c_str());
                return KQS_MOUNT_ERR_RECORDED;
            }
            continue;
        }
        // The script ends here; whatever followed could never run anyway.
        if (line == "exit 0")
            break;
        out << line << "\n";
    }
    if (!remove)
        out << setMountStr(mode, info) << "\n";
    out << "exit 0\n";
    return 0;
}

int MountsM::updateScript(std::ostream& out, const char* scriptPath, const KQC::KQCDevMountInfo& info, int mode,
                          int remove)
{
    std::string text;
    bool have = KQC::file2str(scriptPath, text) == 0;
    if (!have && !remove)
        have = KQC::file2str(KQC::KQCInstanceFolders::etc().leaf("mount-action.sample"), text) == 0;
    if (!have) {
        if (remove)
            return 0;
        KQC::setErrorMessage("can't read the script '%s' or its sample", scriptPath);
        return KQS_MOUNT_ERR_FILE;
    }
    if (!out)
        return KQS_MOUNT_ERR_FILE;
    std::istringstream in(text);
    return processMountInFile(in, out, info, mode, remove);
}

int MountsM::updateFStab(const KQC::KQCDevMountInfo& info, int remove)
{
    if (info.getMountPoint() == "/") {
        KQC::setErrorMessage("the root file system is not the agent's to change");
        return KQS_MOUNT_ERR_FILE;
    }
    const std::string path = KQC::hostPath("/etc/fstab");
    std::string text;
    if (KQC::file2str(path, text) != 0)
        return KQS_MOUNT_ERR_FILE;
    std::istringstream lines(text);
    std::string line, updated;
    while (std::getline(lines, line)) {
        // A prefix test: /data also takes the line of /data2 away.
        if (!blankOrComment(line) && startsWith(secondField(line), info.getMountPoint()))
            continue;
        updated += line + "\n";
    }
    if (!remove) {
        char entry[8192];
        std::snprintf(entry, sizeof entry, "%s\t%s\t%s\tdefaults\t0\t0\n", info.getDevice().c_str(),
                      info.getMountPoint().c_str(), info.getFsType().c_str());
        updated += entry;
    }
    return KQC::str2file(path, updated) == 0 ? 0 : static_cast<int>(KQS_MOUNT_ERR_FILE);
}

std::string MountsM::scriptPath(int veid, const std::string& privatePath, int mode)
{
    if (KQSVEActionSystemLinux::getVEPrivateLayoutVersion(privatePath) == 4)
        return privatePath + "/scripts/" + kOperations[mode].name;
    char name[64];
    std::snprintf(name, sizeof name, "/%u.%s", static_cast<unsigned>(veid), kOperations[mode].name);
    // The doubled slash is how the platform has always named these paths.
    return KQC::hostPath("/etc/sysconfig/kq-scripts/") + name;
}

int MountsM::operateDevice(const KQC::KQCEID& eid, const KQC::KQCDevMountInfo& info, int mode)
{
    if (!validMode(mode))
        return KQS_ERR_GENERIC;
    if (info.getMountPoint().empty() || info.getMountPoint()[0] != '/') {
        KQC::setErrorMessage("can not create relative path '%s'", info.getMountPoint().c_str());
        return KQS_MOUNT_ERR_MOUNT_POINT;
    }
    Target target;
    if (int rc = resolveTarget(eid, target))
        return rc;
    if (int rc = checkMountPoint(target.root, info.getMountPoint()))
        return rc;
    const std::string fullPath = target.root + info.getMountPoint();
    if (mode == MOUNT && KQC::mkDeepDir(fullPath, 0755) != 0) {
        int error = errno;
        KQC::setErrorMessage("mkDeepDir '%s' : %s", info.getMountPoint().c_str(), std::strerror(error));
        return KQS_MOUNT_ERR_MOUNT_POINT;
    }
    // The live action comes first: a mount that fails is not recorded.
    if (info.isMounted())
        if (int rc = runMountCommand(mode, info, fullPath))
            return rc;
    if (!info.isPersistent())
        return 0;
    if (target.host)
        return updateFStab(info, mode);
    return updateScripts(target, info, mode == UMOUNT);
}

int MountsM::getMounts(const KQC::KQCEID& eid, std::vector<KQC::KQCDevMountInfo>& out)
{
    Target target;
    if (int rc = resolveTarget(eid, target))
        return rc;
    std::string prefix;
    if (int rc = containerRootPrefix(prefix))
        return rc;
    KQC::KQCDevMLocal deviceManager{KQC::KQCAccessProvider()};
    KQC::KQCDeviceInfo devices;
    if (int rc = deviceManager.getInfo(&devices))
        return rc;
    if (int rc = activeMounts(target, prefix, devices, out))
        return rc;
    if (target.host)
        return tableMounts(devices, out);
    scriptMounts(target, devices, out);
    return 0;
}

} // namespace KQS
