#include "KQSTEMConfig.h"

#include "KQSEnvMLocal.h"
#include "KQSResult.h"

#include "KQC/Auth.h"
#include "KQC/Error.h"
#include "KQC/Exec.h"
#include "KQC/Files.h"
#include "KQC/Strings.h"
#include "KQS/ShellSyntax.h"

#include <cctype>
#include <cerrno>
#include <cstring>
#include <istream>
#include <map>
#include <mutex>
#include <ostream>
#include <sstream>

namespace KQS {
namespace {

// The sections of a configuration file by name; the number is the parser's
// state while it reads the section's lines (0: lines are ignored).
enum Section {
    SECTION_NONE = 0,
    SECTION_NAME = 3,
    SECTION_DESCRIPTION = 4,
    SECTION_CACHED = 5,
    SECTION_COMPATIBLE_SETS = 6,
    SECTION_REQUIRED_SETS = 7,
    SECTION_BASEDIR = 8,
    SECTION_BASE_VERSION = 9,
    SECTION_VERSION = 10,
    SECTION_PACKAGE_MANAGER = 11,
    SECTION_TECHNOLOGIES = 12,
    SECTION_ACTIONS = 13,
};

const std::map<std::string, int> kSections = {
    {"name", SECTION_NAME},
    {"description", SECTION_DESCRIPTION},
    {"cached", SECTION_CACHED},
    {"compatible_sets", SECTION_COMPATIBLE_SETS},
    {"required_sets", SECTION_REQUIRED_SETS},
    {"basedir", SECTION_BASEDIR},
    {"base_version", SECTION_BASE_VERSION},
    {"version", SECTION_VERSION},
    {"packageManager", SECTION_PACKAGE_MANAGER},
    {"technologies", SECTION_TECHNOLOGIES},
    {"actions", SECTION_ACTIONS},
};

const char kNoVersion[] = "00000000";
const char kWordDelimiters[] = " \t\n";

int sectionNumber(const char* name)
{
    auto it = kSections.find(name);
    return it == kSections.end() ? SECTION_NONE : it->second;
}

bool isVersionMark(const std::string& mark)
{
    return mark.size() == 8 && mark.find_first_not_of("0123456789") == std::string::npos;
}

std::mutex templatesFolderMutex;
std::string templatesFolder;

} // namespace

const char KQSTEMConfig::kAgentPrefix[] = "#<agent>: ";

KQSTEMConfig::KQSTEMConfig() { osType = "Linux"; }

KQSTEMConfig::KQSTEMConfig(const KQSTemplateConfigInfo& info) : KQSTemplateConfigInfo(info) { osType = "Linux"; }

int KQSTEMConfig::parse(std::istream& input)
{
    int state = SECTION_NONE;
    char line[kMaxLineLength + 1];
    // getline fails on a line that does not fit: the parse ends there as if
    // the input had, and the checks below decide.
    while (input.getline(line, sizeof line)) {
        int rc = setConfParameter(&state, line);
        if (rc != 0)
            return rc;
    }
    return isValid();
}

int KQSTEMConfig::setConfParameter(int* state, char* line)
{
    if (line[0] == '%') {
        char* header = KQC::strip_spaces(line) + 1;
        char* argument = nullptr;
        if (char* blank = std::strchr(header, ' ')) {
            *blank = '\0';
            argument = KQC::strip_spaces(blank + 1);
        }
        *state = sectionNumber(header);
        if (*state == SECTION_BASE_VERSION || *state == SECTION_VERSION) {
            versionMark = argument && *argument ? argument : kNoVersion;
            baseVersion = *state == SECTION_BASE_VERSION;
        }
        return KQS_OK;
    }
    if (*state == SECTION_NONE)
        return KQS_OK;
    char* rest = line;
    while (std::isspace(static_cast<unsigned char>(*rest)))
        ++rest;
    bool listed = true;
    if (*rest == '\0' || *rest == '#') {
        const size_t prefixLength = sizeof kAgentPrefix - 1;
        if (std::strncmp(rest, kAgentPrefix, prefixLength) != 0)
            return KQS_OK;  // blank lines and comments
        rest += prefixLength;
        listed = false;
    }
    switch (*state) {
    case SECTION_NAME:
        name += line;
        break;
    case SECTION_DESCRIPTION:
        description += description.empty() ? std::string(line) : "\n" + std::string(line);
        break;
    case SECTION_CACHED:
        cached = std::strcmp(rest, "yes") == 0;
        break;
    case SECTION_COMPATIBLE_SETS:
        compatibleSets.push_back(KQSTemplate(rest));
        break;
    case SECTION_BASEDIR:
        basedir = rest;
        break;
    case SECTION_BASE_VERSION:
    case SECTION_VERSION: {
        char* cursor = rest;
        const char* first = KQC::getToken(&cursor, kWordDelimiters);
        if (!first) {
            KQC::setErrorMessage("invalid 'package' : %s", "");
            return KQS_TEM_ERR_INVALID;
        }
        KQSPackage package;
        package.name = first;
        package.listed = listed;
        while (const char* word = KQC::getToken(&cursor, kWordDelimiters))
            package.words.push_back(word);
        packages[package.name] = package;
        break;
    }
    case SECTION_PACKAGE_MANAGER: {
        std::string key, value;
        if (KQC::parseBashStr(rest, key, value) == 0)
            packageManager[key] = value;
        break;
    }
    default:
        break;  // sections kept in the file but not modelled here
    }
    return KQS_OK;
}

int KQSTEMConfig::isValid() const
{
    if (basedir.empty()) {
        KQC::setErrorMessage("invalid 'basedir' : %s", "");
        return KQS_TEM_ERR_INVALID;
    }
    if (basedir.find('/') != std::string::npos) {
        KQC::setErrorMessage("invalid 'basedir' : %s", basedir.c_str());
        return KQS_TEM_ERR_INVALID;
    }
    if (!versionMark.empty() && !isVersionMark(versionMark)) {
        KQC::setErrorMessage("invalid 'version mark' : %s", versionMark.c_str());
        return KQS_TEM_ERR_INVALID;
    }
    if (packages.empty()) {
        KQC::setErrorMessage("package list is empty");
        return KQS_TEM_ERR_INVALID;
    }
    return KQS_OK;
}

int KQSTEMConfig::printSectionSimple(std::ostream& output, const char* section, const std::string& value) const
{
    output << '%' << section << '\n' << value << "\n\n";
    return KQS_OK;
}

int KQSTEMConfig::printSectionSets(std::ostream& output, const char* section,
                                   const std::vector<KQSTemplate>& sets) const
{
    output << '%' << section << '\n';
    for (const KQSTemplate& set : sets)
        output << set.name << '\n';
    output << '\n';
    return KQS_OK;
}

int KQSTEMConfig::printSectionPackages(std::ostream& output) const
{
    output << (baseVersion ? "%base_version" : "%version") << ' ' << versionMark << '\n';
    for (const auto& entry : packages) {
        const KQSPackage& package = entry.second;
        if (!package.listed)
            output << kAgentPrefix;
        output << package.name;
        for (const std::string& word : package.words)
            output << ' ' << word;
        output << '\n';
    }
    output << '\n';
    return KQS_OK;
}

int KQSTEMConfig::printSectionPkgManager(std::ostream& output) const
{
    output << "%packageManager\n";
    for (const auto& setting : packageManager)
        output << setting.first << "=\"" << setting.second << "\"\n";
    output << '\n';
    return KQS_OK;
}

int KQSTEMConfig::construct(std::ostream& output) const
{
    printSectionSimple(output, "name", name);
    printSectionSimple(output, "description", description);
    printSectionSimple(output, "cached", cached ? "yes" : "no");
    printSectionSimple(output, "basedir", basedir);
    printSectionPackages(output);
    // A cached template's file carries no compatible sets: the cache is
    // made for one OS already.
    if (!cached)
        printSectionSets(output, "compatible_sets", compatibleSets);
    printSectionPkgManager(output);
    return KQS_OK;
}

int KQSTEMConfig::read(const std::string& path)
{
    std::string text;
    if (KQC::file2str(path, text) != 0)
        return KQS_TEM_ERR_OPEN;
    return readFromStr(text);
}

int KQSTEMConfig::read(const std::string& templateName, const std::string& version)
{
    std::string path;
    int rc = constructConfPath(templateName, version, path, 0);
    return rc != 0 ? rc : read(path);
}

int KQSTEMConfig::readFromStr(const std::string& text)
{
    std::istringstream input(text);
    return parse(input);
}

int KQSTEMConfig::readDwexConfig(const std::string& templateName, const std::string& version, std::string& out)
{
    std::string path;
    int rc = constructConfPath(templateName, version, path, 1);
    if (rc != 0)
        return rc;
    return KQC::file2str(path, out) == 0 ? KQS_OK : KQS_TEM_ERR_OPEN;
}

bool KQSTEMConfig::isExisted(const std::string& templateName, const std::string& version)
{
    std::string path;
    if (constructConfPath(templateName, version, path, 0) != 0)
        return false;
    return KQC::fentryExists(path, 0) != 0;
}

int KQSTEMConfig::getTechnologies(const std::string& templateName, const std::string& version)
{
    std::string path;
    int rc = constructConfPath(templateName, version, path, 0);
    if (rc != 0)
        return rc;
    KQC::ExecutionArgs args;
    args.push_back("kqpkginfo", false);
    args.push_back("-e", false);
    args.push_back(path);
    KQC::HWExec exec;
    int status = exec.exec(0, args.toArgs());
    if (status == -1)
        return status;
    std::istringstream lines(exec.getOutput(KQC::GenExec::OUT));
    std::string line;
    while (std::getline(lines, line)) {
        std::vector<char> words(line.begin(), line.end());
        words.push_back('\0');
        char* cursor = words.data();
        while (const char* word = KQC::getToken(&cursor, kWordDelimiters))
            technologies.push_back(word);
    }
    return status;
}

int KQSTEMConfig::set()
{
    std::string path;
    int rc = constructConfPath(path);
    if (rc != 0)
        return rc;
    KQSTEMConfig file;
    rc = file.read(path);
    if (rc != 0)
        return rc;
    cached = file.cached;
    basedir = file.basedir;
    baseVersion = file.baseVersion;
    versionMark = file.versionMark;
    for (auto& entry : packages) {
        auto known = file.packages.find(entry.first);
        if (known == file.packages.end()) {
            KQC::setErrorMessage("invalid 'package' : %s", entry.first.c_str());
            return KQS_TEM_ERR_INVALID;
        }
        entry.second.words = known->second.words;
    }
    rc = isValid();
    if (rc != 0)
        return rc;
    KQC::TemporaryFile temporary(path, true);
    if (!temporary.isValid() || !temporary.stream()) {
        KQC::setErrorMessage("system error : %m");
        return KQS_TEM_ERR_WRITE;
    }
    construct(temporary.stream());
    // Only a completely written file may replace the old one; the temporary
    // file goes away with its object when anything fails.
    if (temporary.close() != 0) {
        KQC::setErrorMessage("system error : %m");
        return KQS_TEM_ERR_WRITE;
    }
    if (temporary.commit() != 0) {
        int error = errno;
        std::string from = temporary.getpath();
        errno = error;
        KQC::setErrorMessage("rename %s -> %s : %m", from.c_str(), path.c_str());
        return KQS_TEM_ERR_WRITE;
    }
    return KQS_OK;
}

int KQSTEMConfig::constructConfPath(std::string& path) const
{
    return constructConfPath(basedir, versionMark, path, 0);
}

int KQSTEMConfig::constructConfPath(const std::string& templateName, const std::string& version,
                                    std::string& path, int metadata)
{
    if (templateName.empty())
        return KQS_TEM_ERR_NO_NAME;
    std::string folder;
    int rc = getKQTemplatesFolder(folder);
    if (rc != 0)
        return rc;
    path = folder + "/" + templateName + "/conf/" + templateName + (metadata ? ".xml." : ".conf.") +
           (version.empty() ? kNoVersion : version);
    return KQS_OK;
}

int getKQTemplatesFolder(std::string& folder)
{
    std::lock_guard<std::mutex> guard(templatesFolderMutex);
    if (templatesFolder.empty()) {
        KQSEnvMLocal envM{KQC::KQCAccessProvider()};
        KQC::KQCTokenHolder agent(KQC::KQCToken::getAgentToken());
        KQSVtSettings settings;
        KQC::KQCOptionalProperty<std::string> configured;
        if (envM.getVtSettings(settings) != 0)
            return KQS_TEM_ERR_NO_FOLDER;
        settings.getTemplatesDir(configured);
        // An empty value would put every template at the file system's root.
        if (!configured.isSpecified() || configured.get().empty())
            return KQS_TEM_ERR_NO_FOLDER;
        templatesFolder = configured.get();
    }
    folder = templatesFolder;
    return KQS_OK;
}

} // namespace KQS
