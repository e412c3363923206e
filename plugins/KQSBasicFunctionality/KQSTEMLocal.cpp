#include "KQSTEMLocal.h"

#include "KQSTEMConfig.h"
#include "KQSResult.h"

#include "KQC/Boundary.h"
#include "KQC/EnvCache.h"
#include "KQC/Error.h"
#include "KQC/Exec.h"
#include "KQC/Strings.h"
#include "KQS/EnvConfig.h"

#include <sstream>
#include <sys/stat.h>
#include <sys/wait.h>

namespace KQS {
namespace {

const char kWordDelimiters[] = " \t\n";
// Hundredths of a second a package tool may run (800 s): installing a
// template downloads and unpacks packages, which may take minutes.
const unsigned int kToolTimeLimit = 80000;

// The VEID of the environment: 0 for the host. 0, or -1 with the message.
int resolveVeid(const KQC::KQCEID& eid, int& veid)
{
    if (eid == KQC::KQCEID::EID_LOCAL) {
        veid = 0;
        return KQS_OK;
    }
    boost::intrusive_ptr<KQC::KQCEnvCache> cache = KQC::envCache();
    if (!cache) {
        KQC::setErrorMessage("cache is empty");
        return KQS_ERR_GENERIC;
    }
    boost::shared_ptr<KQC::KQCEnv> env = cache->getEnvCopy(eid);
    if (!env) {
        KQC::setErrorMessage("eid %s is invalid", eid.toString().c_str());
        return KQS_ERR_GENERIC;
    }
    if (!env->getConfig() || KQSEnvConfig(*env->getConfig()).getVeid(veid) != 0) {
        KQC::setErrorMessage("veid is absent for eid %s", eid.toString().c_str());
        return KQS_ERR_GENERIC;
    }
    return KQS_OK;
}

bool isRegularFile(const std::string& path)
{
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

// Names and marks from the tool's output become parts of paths: one that
// could leave the templates folder is not a template of it.
bool isPathComponent(const std::string& text) { return text.find('/') == std::string::npos && text != ".."; }

bool selectedBy(int filter, const std::string& type)
{
    return (type == "os" && (filter & KQSTEM::PKG_OS)) || (type == "app" && (filter & KQSTEM::PKG_APP));
}

// The record of one listing line; 0 or -51.
int describeTemplate(const std::string& folder, const std::string& line, KQSPackageInfo& info)
{
    std::vector<std::string> versions;
    KQSTEMLocal::parseListLine(line, info.name, versions);
    if (versions.empty()) {
        KQC::setErrorMessage("template '%s' is listed without a version", info.name.c_str());
        return KQS_TEM_ERR_OPEN;
    }
    KQSTEMConfig lowest;
    for (const std::string& version : versions) {
        KQSTEMConfig config;
        if (!isPathComponent(info.name) || !isPathComponent(version) || config.read(info.name, version) != 0)
            return KQS_TEM_ERR_OPEN;
        config.versionMark = version;
        config.cacheFile = folder + "/" + info.name + "-" + version + ".tar.gz";
        KQSPackageVersion listed = config;
        listed.cached = config.cached && isRegularFile(config.cacheFile);
        info.versions.push_back(listed);
        // The lowest mark names the template; of equal marks the first.
        if (info.versions.size() == 1 || version < lowest.versionMark)
            lowest = config;
    }
    info.displayName = lowest.name;
    info.type = lowest.cached ? "os" : "app";
    return KQS_OK;
}

int listTemplates(const KQC::KQCRequestLocal& request, std::vector<KQSPackageInfo>& out, const KQC::KQCEID& eid,
                  int filter)
{
    if (!(filter & KQSTEM::PKG_ALL))
        return KQS_OK;
    std::string folder;
    if (getKQTemplatesFolder(folder) != 0) {
        KQC::setErrorMessage("cannot read Container#%d config, parameter %s", 0, "TEMPLATE");
        return KQS_TEM_ERR_LIST;
    }
    int veid = 0;
    int rc = resolveVeid(eid, veid);
    if (rc != 0)
        return rc;
    KQC::ExecutionArgs args;
    args.push_back("kqpkgls", false);
    args.push_back("-q", false);
    if (veid != 0)
        args.push_back(std::to_string(veid));
    KQC::GenExec exec;
    request.setProgressOutputHandler(exec);
    int status = exec.execWithError(args.toArgs(), 0, kToolTimeLimit);
    if (status == -1)
        return KQS_TEM_ERR_LIST;
    std::istringstream lines(exec.getOutput(KQC::GenExec::OUT));
    std::string line;
    while (std::getline(lines, line)) {
        KQSPackageInfo info;
        rc = describeTemplate(folder, line, info);
        if (rc != 0)
            return rc;
        if (selectedBy(filter, info.type))
            out.push_back(info);
    }
    return status == 0 ? KQS_OK : KQS_TEM_ERR_LIST;
}

// Installation and removal differ in the tool, one flag and their generic code.
int changeTemplates(KQSTEMLocal& manager, const char* tool, const KQC::KQCEID& eid,
                    const std::vector<KQSTemplate>& templates, bool force, const char* extraFlag, bool extra,
                    int genericCode)
{
    const char* options[4];
    size_t count = 0;
    if (force)
        options[count++] = "--force";
    if (extra)
        options[count++] = extraFlag;
    options[count++] = "-q";
    options[count] = nullptr;
    int rc = manager.operateTemplate(tool, eid, templates, options);
    return rc == KQS_ERR_GENERIC ? genericCode : rc;
}

} // namespace

KQSTEMLocal::KQSTEMLocal(const KQC::KQCAccessProvider& access) : KQCRequestModificatorLocal(access) {}

int KQSTEMLocal::ls(std::vector<KQSPackageInfo>& out, const KQC::KQCEID& eid, int type)
{
    return KQC::guardedCall("ls", [&] { return listTemplates(*this, out, eid, type); });
}

int KQSTEMLocal::add(const KQC::KQCEID& eid, const std::vector<KQSTemplate>& templates, bool force, bool jump)
{
    return KQC::guardedCall("add", [&] {
        return changeTemplates(*this, "kqpkgadd", eid, templates, force, "--jump", jump, KQS_TEM_ERR_ADD);
    });
}

int KQSTEMLocal::rm(const KQC::KQCEID& eid, const std::vector<KQSTemplate>& templates, bool force, bool remove)
{
    return KQC::guardedCall("rm", [&] {
        return changeTemplates(*this, "kqpkgrm", eid, templates, force, "--remove", remove, KQS_TEM_ERR_RM);
    });
}

int KQSTEMLocal::operateTemplate(const char* tool, const KQC::KQCEID& eid, const std::vector<KQSTemplate>& templates,
                                 const char* const* options)
{
    return KQC::guardedCall("operateTemplate", [&] {
        int veid = 0;
        int rc = resolveVeid(eid, veid);
        if (rc != 0)
            return rc;
        KQC::ExecutionArgs args;
        args.push_back(tool);
        for (const char* const* option = options; *option; ++option)
            args.push_back(*option);
        args.push_back(std::to_string(veid));
        for (const KQSTemplate& item : templates)
            args.push_back(item.toString());
        KQC::GenExec exec;
        setProgressOutputHandler(exec);
        if (exec.execWithError(args.toArgs(), 0, kToolTimeLimit) == 0)
            return static_cast<int>(KQS_OK);
        return toolComplaint(exec.getOutput(KQC::GenExec::ERRTEXT));
    });
}

int KQSTEMLocal::isStandardRPM(const std::string& path)
{
    return KQC::guardedCall("isStandardRPM", [&] {
        KQC::ExecutionArgs args;
        args.push_back("rpm", false);
        args.push_back("-qpl", false);
        args.push_back(path);
        KQC::HWExec exec;
        int status = exec.exec(0, args.toArgs());
        const std::string& listed = exec.getOutput(KQC::GenExec::OUT);
        // A query tool that is not there exits 127 from the child, before
        // listing anything.
        if (status == -1 || (listed.empty() && WIFEXITED(status) && WEXITSTATUS(status) == 127))
            return static_cast<int>(KQS_TEM_ERR_RPM);
        std::istringstream lines(listed);
        std::string line;
        while (std::getline(lines, line))
            if (isTemplateConfPath(line))
                return static_cast<int>(KQS_OK);
        return static_cast<int>(KQS_TEM_ERR_NOT_PACKAGE);
    });
}

bool KQSTEMLocal::parseListLine(const std::string& line, std::string& name, std::vector<std::string>& versions)
{
    std::vector<char> text(line.begin(), line.end());
    text.push_back('\0');
    char* cursor = text.data();
    const char* first = KQC::getToken(&cursor, kWordDelimiters);
    if (!first)
        return false;
    name = first;
    while (const char* word = KQC::getToken(&cursor, kWordDelimiters))
        versions.push_back(word);
    return true;
}

bool KQSTEMLocal::isTemplateConfPath(const std::string& path)
{
    static const std::string kRoot = "/kq/template/";
    if (path.compare(0, kRoot.size(), kRoot) != 0)
        return false;
    std::string::size_type slash = path.find('/', kRoot.size());
    return slash != std::string::npos && slash > kRoot.size() && path.compare(slash, 6, "/conf/") == 0;
}

int KQSTEMLocal::toolComplaint(const std::string& errorOutput)
{
    static const struct {
        const char* text;
        int code;
    } kComplaints[] = {
        {"Use -f/--force option", KQS_TEM_ERR_NEED_FORCE},
        {"failed dependencies", KQS_TEM_ERR_DEPENDENCIES},
        {"already installed", KQS_TEM_ERR_INSTALLED},
    };
    for (const auto& complaint : kComplaints)
        if (errorOutput.find(complaint.text) != std::string::npos)
            return complaint.code;
    return KQS_ERR_GENERIC;
}

} // namespace KQS
