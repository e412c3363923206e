// Configuration samples: the store in the container-scripts folder and the
// sample manager.
#include "KQSSampleMLocal.h"

#include "KQC/Computer.h"
#include "KQC/Configuration.h"
#include "KQC/Files.h"
#include "KQC/HostPaths.h"
#include "KQC/Names.h"
#include "KQSBasicFunctionalityCommon.h"
#include "KQSEnvMLocal.h"
#include "KQSResult.h"

#include <boost/make_shared.hpp>

#include <cctype>
#include <cstring>
#include <fstream>
#include <mutex>
#include <sstream>

namespace KQS {
namespace {

const char kPrefix[] = "ve-";
const char kSuffix[] = ".conf-sample";
const char kAnonymous[] = "Anonymous_template";

// The host's EID text, read once: every path-derived identifier of this
// process starts with it.
const std::string& localEidText()
{
    static std::once_flag once;
    static std::string text;
    std::call_once(once, [] {
        if (KQC::KQCConfiguration::getLocalEID(text) != 0)
            text.clear();
    });
    return text;
}

// The sample name of a folder entry, or false when the entry is no sample.
bool sampleNameOf(const std::string& entry, std::string& name)
{
    if (entry.find(KQC::kTemporaryTag) != std::string::npos)
        return false;
    const size_t suffixLength = std::strlen(kSuffix);
    const size_t prefixLength = std::strlen(kPrefix);
    size_t at = entry.rfind(kSuffix);
    if (at == std::string::npos || at + suffixLength != entry.size())
        return false;
    std::string stem = entry.substr(0, at);
    if (stem.compare(0, prefixLength, kPrefix) != 0)
        return false;
    name = stem.substr(prefixLength);
    return true;
}

// Samples list their OS with a capital first letter, and the OS template's
// name as the distribution.
void normaliseOs(KQSEnvConfig& config)
{
    KQC::KQCOptionalProperty<KQC::KQCOS> os;
    config.getOS(os);
    KQC::KQCOS record = os.get();
    bool changed = false;
    if (os.isSpecified() && record.platform.isSpecified() && !record.platform.get().empty()) {
        std::string platform = record.platform.get();
        platform[0] = char(std::toupper(static_cast<unsigned char>(platform[0])));
        record.platform.set(platform);
        changed = true;
    }
    KQC::KQCOptionalProperty<KQSTemplate> osTemplate;
    config.getOsTemplate(osTemplate);
    if (osTemplate.isSpecified() && !osTemplate.get().name.empty()) {
        record.distribution.set(osTemplate.get().name);
        changed = true;
    }
    if (changed)
        config.setOS(record);
}

boost::shared_ptr<KQSEnvConfig> readSampleFile(const std::string& path, const KQSEnvConfigBashParser& parser)
{
    std::string text;
    if (KQC::file2str(path, text) != 0)
        return boost::shared_ptr<KQSEnvConfig>();
    boost::shared_ptr<KQSEnvConfig> config = boost::make_shared<KQSEnvConfig>();
    std::istringstream input(text);
    if (parser.getConfig(input, *config) != 0)
        return boost::shared_ptr<KQSEnvConfig>();
    return config;
}

std::string nameOf(const KQC::KQCEnvSample& sample)
{
    KQC::KQCOptionalProperty<std::string> name;
    if (sample.config)
        sample.config->getName(name);
    return name.get();
}

bool isWanted(const KQC::KQCGUIDSet& ids, const KQC::KQCGUID& id) { return ids.empty() || ids.count(id) != 0; }

} // namespace

KQSSampleMLocal::KQSSampleMLocal(const KQC::KQCAccessProvider& access) : KQCRequestModificatorLocal(access) {}

// ---- the store ----

std::string KQSSampleMLocal::getSystemSampleConfDir() { return KQC::hostPath("/etc/sysconfig/kq-scripts/"); }

std::string KQSSampleMLocal::getSamplePath(const std::string& name)
{
    return KQC::canonizePath(getSystemSampleConfDir() + "/" + kPrefix + name + kSuffix, '/');
}

std::string KQSSampleMLocal::getSamplePath(const KQC::KQCEnvSample& sample) { return getSamplePath(nameOf(sample)); }

void KQSSampleMLocal::getPathGuid(const std::string& path, KQC::KQCGUID& out)
{
    uint8_t digest[16];
    KQC::md5Digest(localEidText() + path, digest);
    out = KQC::KQCGUIDBase::fromBytes(digest);
}

void KQSSampleMLocal::getSamples(KQC::KQCEnvSampleList& out)
{
    boost::shared_ptr<KQSEnvConfigBashParser> parser = KQSEnvMLocal::getLocalEnvConfigParser();
    const std::string dir = getSystemSampleConfDir();
    KQC::OpenDir folder(dir);
    if (!parser || !folder) {
        KQS_LOG().put(1, "[%s] failed to open bash-samples directory: '%s', broken installation", "getSamples",
                      dir.c_str());
        return;
    }
    while (folder.read()) {
        std::string name;
        if (folder.isDots() || !sampleNameOf(folder.name(), name))
            continue;
        const std::string path = KQC::canonizePath(dir + "/" + folder.name(), '/');
        boost::shared_ptr<KQSEnvConfig> config = readSampleFile(path, *parser);
        if (!config)
            continue;
        normaliseOs(*config);
        config->setName(name);
        KQC::KQCGUID id;
        KQC::KQCOptionalProperty<std::string> uuid;
        config->getUUID(uuid);
        if (!uuid.isSpecified() || id.fromString(uuid.get()) != 0)
            getPathGuid(path, id);
        out.push_back(KQC::KQCEnvSample(id, config));
    }
}

int KQSSampleMLocal::saveSample(const KQC::KQCSampleConf& sample)
{
    boost::shared_ptr<KQSEnvConfigBashParser> parser = KQSEnvMLocal::getLocalEnvConfigParser();
    if (!parser) {
        KQC::setErrorMessage("Can't get config parser");
        return -3;
    }
    const std::string name = nameOf(sample);
    // The name becomes part of a path: it must stay one file of the folder.
    if (name.find('/') != std::string::npos || name.find('\0') != std::string::npos) {
        KQC::setErrorMessage("can't write system sample: bad name '%s'", name.c_str());
        return KQS_ERR_GENERIC;
    }
    const std::string path = getSamplePath(name);
    std::string oldText;
    const bool hasOld = KQC::file2str(path, oldText) == 0;
    KQC::TemporaryFile temporary(path);
    if (!temporary.isValid()) {
        KQC::setErrorMessage("can't open tmp system sample '%s' : %s", path.c_str(), std::strerror(errno));
        return KQS_ERR_GENERIC;
    }
    KQSEnvConfig config = sample.config ? *sample.config : KQSEnvConfig();
    config.setName(KQC::KQCOptionalProperty<std::string>());
    config.setUUID(sample.id.toString());
    std::istringstream old(oldText);
    if (parser->putConfig(config, temporary.stream(), hasOld ? &old : nullptr, hasOld) != 0) {
        KQC::setErrorMessage("can't write system sample '%s' : %s", path.c_str(), KQC::getErrorMessage());
        return KQS_ERR_GENERIC;
    }
    // The whole new text is on disk before it replaces the sample.
    if (temporary.commit() != 0) {
        KQC::setErrorMessage("copy '%s' -> '%s' : %s", temporary.getpath().c_str(), path.c_str(),
                             std::strerror(errno));
        return KQS_ERR_GENERIC;
    }
    return KQS_OK;
}

// ---- the manager ----

std::string& KQSSampleMLocal::getSystemVersion()
{
    static std::once_flag once;
    static std::string system;
    std::call_once(once, [] {
        KQC::KQCSystemInfo info;
        KQC::KQCComputerMLocal computer{KQC::KQCAccessProvider()};
        if (computer.getSystem(info) != 0 || info.os.platform.get().empty())
            system = "Linux";
        else
            system = info.os.platform.get();
    });
    return system;
}

std::string KQSSampleMLocal::generateSampleName(const std::string& name)
{
    KQC::KQCEnvSampleList samples;
    getSamples(samples);
    std::set<std::string> used;
    for (const KQC::KQCEnvSample& sample : samples) {
        KQC::KQCOptionalProperty<std::string> n;
        sample.config->getName(n);
        if (n.isSpecified())
            used.insert(n.get());
    }
    return KQC::makeUniqueName(used, name);
}

int KQSSampleMLocal::add(const KQC::KQCEnvSample& sample, KQC::KQCGUID* id)
{
    return KQC::guardedCall("add", [&] { return addSample(sample, id); });
}

int KQSSampleMLocal::addSample(const KQC::KQCEnvSample& sample, KQC::KQCGUID* id)
{
    KQC::KQCEnvSample copy = sample.deepCopy();
    if (!copy.id.isValid())
        copy.id.generate();
    std::string name = nameOf(copy);
    if (name.empty())
        name = kAnonymous;
    name = generateSampleName(name);
    copy.config->setName(name);
    getContextLocal().freportProgress("Adding template '%s'", name.c_str());
    if (saveSample(copy) != 0) {
        KQS_LOG().put(1, "[%s] %s", __func__, KQC::getErrorMessage());
        return KQS_ERR_GENERIC;
    }
    if (id)
        *id = copy.id;
    return KQS_OK;
}

int KQSSampleMLocal::get(std::vector<KQC::KQCEnvSample>* out, const KQC::KQCGUIDSet& ids)
{
    return KQC::guardedCall("get", [&] { return getSamplesOf(out, ids); });
}

int KQSSampleMLocal::getSamplesOf(std::vector<KQC::KQCEnvSample>* out, const KQC::KQCGUIDSet& ids)
{
    out->clear();
    KQC::KQCEnvSampleList samples;
    getSamples(samples);
    for (const KQC::KQCEnvSample& sample : samples)
        if (isWanted(ids, sample.id))
            out->push_back(sample);
    return KQS_OK;
}

int KQSSampleMLocal::get(KQC::KQCEnvSample* out, const KQC::KQCGUID& id)
{
    return KQC::guardedCall("get", [&] { return getOne(out, id); });
}

int KQSSampleMLocal::getOne(KQC::KQCEnvSample* out, const KQC::KQCGUID& id)
{
    std::vector<KQC::KQCEnvSample> found;
    if (getSamplesOf(&found, KQC::KQCGUIDSet{id}) != 0 || found.empty()) {
        KQC::setErrorMessage("Can't find specified template");
        return KQS_ERR_GENERIC;
    }
    *out = found.front();
    return KQS_OK;
}

int KQSSampleMLocal::del(const KQC::KQCGUIDSet& ids)
{
    return KQC::guardedCall("del", [&] { return delSamples(ids); });
}

int KQSSampleMLocal::delSamples(const KQC::KQCGUIDSet& ids)
{
    KQC::KQCEnvSampleList samples;
    getSamples(samples);
    KQC::KQCGUIDSet missing = ids;
    for (const KQC::KQCEnvSample& sample : samples) {
        if (!isWanted(ids, sample.id))
            continue;
        KQC::KQCOptionalProperty<std::string> name;
        sample.config->getName(name);
        const std::string shown = name.isSpecified() ? name.get() : sample.id.toString();
        getContextLocal().freportProgress("Deleting template \"%s\"", shown.c_str());
        const std::string path = getSamplePath(sample);
        if (KQC::removeFile(path) != 0) {
            KQC::setErrorMessage("Can't delete system template '%s' : %s", path.c_str(), std::strerror(errno));
            return KQS_ERR_GENERIC;
        }
        missing.erase(sample.id);
    }
    if (missing.empty())
        return KQS_OK;
    std::string list;
    for (const KQC::KQCGUID& id : missing)
        list += (list.empty() ? "" : ", ") + id.toString();
    KQC::setErrorMessage("Can't find the following templates: %s", list.c_str());
    return KQS_ERR_GENERIC;
}

int KQSSampleMLocal::set(const KQC::KQCGUID& id, const KQC::KQCEnvSample& sample, KQC::KQCEnvSample* out)
{
    return KQC::guardedCall("set", [&] {
        // Delete first, then add: a failing add leaves the sample deleted.
        if (delSamples(KQC::KQCGUIDSet{id}) != 0)
            return int(KQS_ERR_GENERIC);
        KQC::KQCEnvSample replacement = sample.deepCopy();
        replacement.id = id;
        if (addSample(replacement, nullptr) != 0)
            return int(KQS_ERR_GENERIC);
        return getOne(out, id);
    });
}

int KQSSampleMLocal::clone(const KQC::KQCGUID& id, KQC::KQCGUID* newId)
{
    return KQC::guardedCall("clone", [&] {
        KQC::KQCEnvSample source;
        std::vector<KQC::KQCEnvSample> found;
        if (getSamplesOf(&found, KQC::KQCGUIDSet{id}) != 0 || found.empty()) {
            KQC::setErrorMessage("Failed to find specified template");
            return int(KQS_ERR_GENERIC);
        }
        KQC::KQCEnvSample copy = found.front().deepCopy();
        copy.id.generate();
        copy.config->setName(generateSampleName(nameOf(found.front())));
        return addSample(copy, newId);
    });
}

int KQSSampleMLocal::cloneToSample(const KQC::KQCEID& eid, KQC::KQCGUID* newId)
{
    return KQC::guardedCall("cloneToSample", [&] {
        KQSEnvMLocal envM{KQC::KQCAccessProvider()};
        KQC::KQCEnvVector envs;
        if (envM.getInfo(KQC::KQCEIDSet{eid}, envs, 0xffffffff) != 0 || envs.size() != 1 || !envs[0]->getConfig()) {
            KQC::setErrorMessage("Can not find specified container");
            return int(KQS_ERR_GENERIC);
        }
        boost::shared_ptr<KQSEnvConfig> config = boost::make_shared<KQSEnvConfig>(*envs[0]->getConfig());
        KQC::KQCOptionalProperty<std::string> name;
        config->getName(name);
        config->setName(generateSampleName(name.get()));
        // A sample must not carry the container's own paths.
        config->setVERootVar(KQC::KQCOptionalProperty<std::string>());
        config->setVEPrivateVar(KQC::KQCOptionalProperty<std::string>());
        // Nor its identity: the new sample gets its own.
        config->setUUID(KQC::KQCOptionalProperty<std::string>());
        config->unsetVeid();
        return addSample(KQC::KQCEnvSample(KQC::KQCGUID(), config), newId);
    });
}

int KQSSampleMLocal::importSample(const KQC::KQCEnvSample& sample, KQC::KQCGUID* id)
{
    return KQC::guardedCall("importSample", [&] {
        // Importing changes the host's store: a client that may create
        // containers here may, and so may one that applies samples to the
        // host's containers.
        KQSEnvMLocal envM(access());
        if (int rc = envM.checkAccessToChilds(KQC::RIGHT_ENV_CREATE))
            return rc;
        if (!sample.config) {
            KQC::setErrorMessage("Can't import a template without a configuration");
            return int(KQS_ERR_GENERIC);
        }
        KQC::KQCEnvSample copy = sample.deepCopy();
        // The sample keeps its identity when this host does not know it yet,
        // so that the same sample is known by one GUID on every host.
        std::vector<KQC::KQCEnvSample> same;
        if (!copy.id.isValid() || (getSamplesOf(&same, KQC::KQCGUIDSet{copy.id}) == 0 && !same.empty()))
            copy.id.generate();
        copy.config->setUUID(KQC::KQCOptionalProperty<std::string>());
        copy.config->unsetVeid();
        std::string name = nameOf(copy);
        if (name.empty())
            name = kAnonymous;
        name = generateSampleName(name);
        copy.config->setName(name);
        getContextLocal().freportProgress("Importing template '%s'", name.c_str());
        if (saveSample(copy) != 0) {
            std::string why = KQC::getErrorMessage();
            KQC::setErrorMessage("Can't import template '%s' : %s", name.c_str(), why.c_str());
            return int(KQS_ERR_GENERIC);
        }
        if (id)
            *id = copy.id;
        return int(KQS_OK);
    });
}

} // namespace KQS
