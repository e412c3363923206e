#include "KQC/Vocabulary.h"

#include "ConfigFileIO.h"
#include "KQC/Error.h"
#include "KQC/Files.h"
#include "KQC/HostPaths.h"
#include "KQC/Log.h"
#include "KQC/Tags.h"
#include "KQS/ShellSyntax.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <dirent.h>
#include <mutex>
#include <sstream>
#include <strings.h>
#include <sys/stat.h>
#include <sys/utsname.h>

#ifndef KQ_FRAMEWORK_DATA_DIR
#define KQ_FRAMEWORK_DATA_DIR "/usr/share/kqframework"
#endif

namespace KQC {
namespace {

const char kComponent[] = "kqframework";

std::vector<std::string> splitCommas(const std::string& text)
{
    std::vector<std::string> parts;
    std::string part;
    std::istringstream input(text);
    while (std::getline(input, part, ','))
        if (!part.empty())
            parts.push_back(part);
    return parts;
}

int applyAttribute(const std::string& word, KQCVocParameter& parameter, std::string& problem)
{
    std::string::size_type equals = word.find('=');
    if (equals == std::string::npos || equals == 0) {
        problem = "expected NAME=VALUE, found '" + word + "'";
        return -1;
    }
    const std::string name = word.substr(0, equals);
    const std::string value = word.substr(equals + 1);
    int tag = 0;
    if (name == "group")
        parameter.setGroup(value);
    else if (name == "category")
        for (const std::string& category : splitCommas(value))
            parameter.addCategory(category);
    else if (tagFromName(name, tag) == 0)
        parameter.setAttribute(tag, value);
    else {
        problem = "unknown attribute '" + name + "'";
        return -1;
    }
    return 0;
}

int parseEntry(const std::vector<std::string>& words, KQCVocabulary& vocabulary, std::string& problem)
{
    if (words[0] == "vocabulary" && words.size() == 2) {
        vocabulary.setId(words[1]);
        return 0;
    }
    if (words[0] != "parameter" || words.size() < 2) {
        problem = "expected 'vocabulary ID' or 'parameter ID ...'";
        return -1;
    }
    KQCVocParameter parameter;
    parameter.setId(words[1]);
    for (size_t i = 2; i < words.size(); ++i)
        if (applyAttribute(words[i], parameter, problem) != 0)
            return -1;
    vocabulary.addParameter(parameter);
    return 0;
}

// What a folder looks like now: its vocabulary files with their stamps.
struct FolderState {
    std::vector<std::string> files;
    std::string stamp;
};

FolderState readFolderState(const std::string& folder)
{
    FolderState state;
    DIR* dir = opendir(folder.c_str());
    if (!dir)
        return state;
    while (struct dirent* entry = readdir(dir)) {
        std::string name = entry->d_name;
        if (name.size() > 4 && name.compare(name.size() - 4, 4, ".voc") == 0)
            state.files.push_back(name);
    }
    closedir(dir);
    std::sort(state.files.begin(), state.files.end());
    for (const std::string& name : state.files)
        state.stamp += name + ":" + std::to_string(ConfigFileIO::modificationTime(folder + "/" + name)) + ";";
    return state;
}

KQCVocabularyList loadFolder(const std::string& folder, const FolderState& state)
{
    KQCVocabularyList list;
    for (const std::string& name : state.files) {
        KQCVocabularyPtr vocabulary(new KQCVocabulary);
        if (KQCVocabulary::load(folder + "/" + name, *vocabulary) != 0) {
            Log2(kComponent, __FILE__, __LINE__, __func__, __PRETTY_FUNCTION__)
                .put(1, "[%s] skipping vocabulary : %s", __func__, getErrorMessage());
            continue;
        }
        list.push_back(vocabulary);
    }
    return list;
}

// The loaded vocabularies, re-read when the folder changes.
class VocabularyStore {
public:
    boost::shared_ptr<const KQCVocabularyList> current()
    {
        std::lock_guard<std::mutex> guard(m_lock);
        std::string folder = vocabularyFolder();
        FolderState state = readFolderState(folder);
        if (!m_list || folder != m_folder || state.stamp != m_stamp) {
            m_list.reset(new KQCVocabularyList(loadFolder(folder, state)));
            m_folder = folder;
            m_stamp = state.stamp;
        }
        return m_list;
    }

private:
    std::mutex m_lock;
    std::string m_folder;
    std::string m_stamp;
    boost::shared_ptr<const KQCVocabularyList> m_list;
};

VocabularyStore& store()
{
    static VocabularyStore instance;
    return instance;
}

std::string hostArchitecture()
{
    struct utsname names;
    if (uname(&names) != 0)
        return "x86_64";
    std::string machine = names.machine;
    if (machine == "i486" || machine == "i586" || machine == "i686")
        return "i386";
    return machine;
}

bool isDirectory(const std::string& path)
{
    struct stat info;
    return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

} // namespace

// ---- parameters and vocabularies ----

int KQCVocParameter::getString(int tag, std::string& value) const
{
    std::map<int, std::string>::const_iterator found = m_attributes.find(tag);
    if (found == m_attributes.end())
        return -1;
    value = found->second;
    return 0;
}

int KQCVocParameter::getInt(int tag, int& value) const
{
    std::string text;
    if (getString(tag, text) != 0 || text.empty())
        return -1;
    errno = 0;
    char* end = nullptr;
    long number = std::strtol(text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || number < INT32_MIN || number > INT32_MAX)
        return -1;
    value = static_cast<int>(number);
    return 0;
}

void KQCVocabulary::addParameter(const KQCVocParameter& parameter)
{
    for (KQCVocParameter& known : m_parameters)
        if (known.getId() == parameter.getId()) {
            known = parameter;
            return;
        }
    m_parameters.push_back(parameter);
}

const KQCVocParameter* KQCVocabulary::findParameter(const std::string& id) const
{
    for (const KQCVocParameter& parameter : m_parameters)
        if (parameter.getId() == id)
            return &parameter;
    return nullptr;
}

int KQCVocabulary::getParameter(const std::string& id, KQCVocParameter& parameter) const
{
    const KQCVocParameter* found = findParameter(id);
    if (!found)
        return -1;
    parameter = *found;
    return 0;
}

int KQCVocabulary::getValue(const std::string& id, std::string& value) const
{
    const KQCVocParameter* found = findParameter(id);
    return found ? found->getString(TAG_VOC_VALUE, value) : -1;
}

int KQCVocabulary::getParameters(const std::set<std::string>& categories,
                                 std::vector<KQCVocParameter>& parameters) const
{
    std::vector<KQCVocParameter> found;
    for (const KQCVocParameter& parameter : m_parameters) {
        bool inAll = true;
        for (const std::string& category : categories)
            inAll = inAll && parameter.isInCategory(category);
        if (inAll)
            found.push_back(parameter);
    }
    if (found.empty())
        return -1;
    parameters.insert(parameters.end(), found.begin(), found.end());
    return 0;
}

int KQCVocabulary::getCategory(const std::string& category, std::vector<KQCVocParameter>& parameters) const
{
    return getParameters(std::set<std::string>{category}, parameters);
}

bool KQCVocabulary::hasCategory(const std::string& category) const
{
    for (const KQCVocParameter& parameter : m_parameters)
        if (parameter.isInCategory(category))
            return true;
    return false;
}

int KQCVocabulary::parse(const std::string& text, const std::string& sourceName)
{
    KQCVocabulary parsed;
    std::istringstream input(text);
    std::string line;
    for (int number = 1; std::getline(input, line); ++number) {
        std::vector<std::string> words;
        std::string problem;
        if (KQS::splitShellWords(line, words) != 0)
            problem = getErrorMessage();
        else if (!words.empty() && parseEntry(words, parsed, problem) == 0)
            continue;
        if (!problem.empty()) {
            setErrorMessage("vocabulary '%s' line %d: %s", sourceName.c_str(), number, problem.c_str());
            return -1;
        }
    }
    if (parsed.m_id.empty()) {
        setErrorMessage("vocabulary '%s' has no 'vocabulary ID' line", sourceName.c_str());
        return -1;
    }
    *this = parsed;
    return 0;
}

int KQCVocabulary::load(const std::string& path, KQCVocabulary& vocabulary)
{
    std::string text;
    if (file2str(path, text) != 0)
        return -1;
    return vocabulary.parse(text, path);
}

// ---- the map ----

KQCVocMap::KQCVocMap(const KQCVocabularyPtr& vocabulary, const std::set<std::string>& ids)
{
    push_back(vocabulary);
    for (const std::string& id : ids)
        if (KQCVocabularyPtr more = vocCache()->find(id))
            push_back(more);
}

void KQCVocMap::push_back(const KQCVocabularyPtr& vocabulary)
{
    if (vocabulary)
        m_vocabularies.push_back(vocabulary);
}

const KQCVocParameter* KQCVocMap::findParameter(const std::string& id) const
{
    for (const KQCVocabularyPtr& vocabulary : m_vocabularies)
        if (const KQCVocParameter* parameter = vocabulary->findParameter(id))
            return parameter;
    return nullptr;
}

int KQCVocMap::getValue(const std::string& id, std::string& value) const
{
    const KQCVocParameter* parameter = findParameter(id);
    return parameter ? parameter->getString(TAG_VOC_VALUE, value) : -1;
}

void KQCVocMap::getCategory(const std::string& category, std::vector<KQCVocParameter>& parameters) const
{
    std::set<std::string> seen;
    for (const KQCVocabularyPtr& vocabulary : m_vocabularies)
        for (const KQCVocParameter& parameter : vocabulary->getParameters())
            if (parameter.isInCategory(category) && seen.insert(parameter.getId()).second)
                parameters.push_back(parameter);
}

// ---- the caches ----

KQCVocabularyPtr KQCVocCacheLocal::getVocabulary() const
{
    const std::string architecture = hostArchitecture();
    for (const KQCVocabularyPtr& vocabulary : *store().current()) {
        std::string platform, arch;
        if (vocabulary->getValue("platform", platform) == 0 && vocabulary->getValue("architecture", arch) == 0 &&
            compareNoCase(platform, "linux") == 0 && compareNoCase(arch, architecture) == 0)
            return vocabulary;
    }
    return KQCVocabularyPtr();
}

boost::shared_ptr<const KQCVocabularyList> KQCVocCache::getList() const { return store().current(); }

KQCVocabularyPtr KQCVocCache::find(const std::string& id) const
{
    for (const KQCVocabularyPtr& vocabulary : *store().current())
        if (vocabulary->getId() == id)
            return vocabulary;
    return KQCVocabularyPtr();
}

boost::shared_ptr<KQCVocCacheLocal> vocCacheLocal()
{
    static boost::shared_ptr<KQCVocCacheLocal> cache(new KQCVocCacheLocal);
    return cache;
}

boost::shared_ptr<KQCVocCache> vocCache()
{
    static boost::shared_ptr<KQCVocCache> cache(new KQCVocCache);
    return cache;
}

std::string vocabularyFolder()
{
    std::string installed = KQCInstanceFolders::etc().leaf("vocabulary");
    if (isDirectory(installed))
        return installed;
    return std::string(KQ_FRAMEWORK_DATA_DIR) + "/etc/vocabulary";
}

int compareNoCase(const std::string& a, const std::string& b) { return strcasecmp(a.c_str(), b.c_str()); }

} // namespace KQC
