// Changing a container's configuration: from a client's configuration, or
// from chosen parts of a sample.
#include "KQSEnvMLocal.h"

#include "KQSBasicFunctionalityCommon.h"
#include "KQSResult.h"
#include "KQSSampleMLocal.h"

#include "KQC/Error.h"
#include "KQC/Message.h"
#include "KQC/Vocabulary.h"
#include "KQS/Notifications.h"

#include <boost/make_shared.hpp>

namespace KQS {
namespace {

// Tells the client, in one sentence, which settings a change sets.
class Reporter {
public:
    Reporter(const KQC::KQCRequestLocal& request, const KQC::KQCStringSet& tasks)
        : m_request(request), m_quietWhenUnchanged(!tasks.empty())
    {
    }

    // 0, or -4 without the host's vocabulary.
    int do_(const KQSEnvConfig& old, const KQSEnvConfig& now) const
    {
        boost::shared_ptr<KQSEnvConfigBashParser> parser = KQSEnvMLocal::getLocalEnvConfigParser();
        if (!parser) {
            KQC::setErrorMessage("failed to read local vocabulary");
            return KQS_ERR_READ;
        }
        KQSConfigDiff changes;
        (void)parser->diffConfig(old, now, changes);
        if (changes.empty() && m_quietWhenUnchanged)
            return KQS_OK;
        m_request.reportProgress(sentence(changes));
        return KQS_OK;
    }

    static std::string sentence(const KQSConfigDiff& changes)
    {
        if (changes.empty())
            return "Nothing has changed.";
        std::string text;
        for (const auto& change : changes)
            text += (text.empty() ? "Setting \"" : ", setting \"") + change.first + "\" to \"" + change.second + "\"";
        return text + ".";
    }

private:
    const KQC::KQCRequestLocal& m_request;
    bool m_quietWhenUnchanged;
};

// Reads a registered container's configuration as the listing has it.
class Hunter {
public:
    Hunter(KQSEnvMLocal& envm, const KQC::KQCEID& eid) : m_envm(envm), m_eid(eid) {}

    // The configuration; empty when the container cannot be listed.
    boost::shared_ptr<KQSEnvConfig> hunt()
    {
        KQC::KQCEnvVector envs;
        if (m_envm.getInfo(KQC::KQCEIDSet{m_eid}, envs, 0xffffffff) != 0 || envs.size() != 1
            || !envs.front()->getConfig())
            return boost::shared_ptr<KQSEnvConfig>();
        return boost::make_shared<KQSEnvConfig>(*envs.front()->getConfig());
    }

private:
    KQSEnvMLocal& m_envm;
    KQC::KQCEID m_eid;
};

// Finds the container of an environment and readies a change for it: the
// container's VEID is the one the registry has, whatever the request says,
// and the client hears what will change.
class SetAssistant {
public:
    SetAssistant(KQSEnvMLocal& envm, const KQC::KQCEID& eid) : m_envm(envm), m_eid(eid) {}

    // 0 with the VEID, or -8 ("can't find ctid by env") / -7.
    int resolve(int& veid)
    {
        int rc = m_envm.findByEid(m_eid, &veid);
        if (rc == KQS_ERR_NO_ENV)
            KQC::setErrorMessage("can't find ctid by env");
        m_veid = veid;
        return rc;
    }

    // 0, or -8 when the container cannot be read, or the reporter's failure.
    int fill(KQSEnvConfig& config, const Reporter& reporter)
    {
        boost::shared_ptr<KQSEnvConfig> old = Hunter(m_envm, m_eid).hunt();
        if (!old) {
            KQC::setErrorMessage("can't read the configuration of ctid %d", m_veid);
            return KQS_ERR_NO_ENV;
        }
        config.setVeid(m_veid);
        return reporter.do_(*old, config);
    }

private:
    KQSEnvMLocal& m_envm;
    KQC::KQCEID m_eid;
    int m_veid = 0;
};

// Copies one non-QoS parameter: every element at its message path in the
// source, into the same place of the target. A path the sample lacks is
// skipped.
void copyParameter(const KQC::KQCVocParameter& parameter, KQC::KQCMessageIterator& source,
                   KQC::KQCMessageIterator& target)
{
    std::string path;
    if (parameter.getString(KQC::TAG_MESSAGE_PATH, path) != 0)
        return;
    source.top();
    const size_t last = path.rfind('/');
    if (last != std::string::npos && source.moveTo(path.substr(0, last)) != 0)
        return;
    source.top();
    target.top();
    if (createPath(target, path) != 0)
        return;
    target.top();
    (void)source.copyPathTo(path, target);
}

} // namespace

int createPath(KQC::KQCMessageIterator& it, const std::string& path)
{
    if (path.empty())
        return 0;
    if (path[0] == '/')
        it.top();
    size_t start = 0;
    for (size_t slash = path.find('/'); slash != std::string::npos; slash = path.find('/', start)) {
        const std::string component = path.substr(start, slash - start);
        start = slash + 1;
        if (!component.empty() && it.enterOrCreate(component) != 0)
            return -1;
    }
    return 0;
}

boost::shared_ptr<KQSEnvConfig> filterConfig(const boost::shared_ptr<KQSEnvConfig>& sample,
                                             const KQC::KQCStringSet& parameters,
                                             const KQC::KQCStringSet& categories)
{
    KQC::KQCVocabularyPtr vocabulary = KQC::vocCacheLocal()->getVocabulary();
    if (!vocabulary || !sample)
        return boost::shared_ptr<KQSEnvConfig>();
    KQC::KQCMessage sourceMessage, targetMessage;
    sourceMessage.setName("packet");
    targetMessage.setName("packet");
    KQC::KQCMessageIterator source = sourceMessage.getIterator();
    KQC::KQCMessageIterator target = targetMessage.getIterator();
    if (source.enterOrCreate(KQC::tagKey(KQC::TAG_ENV_SAMPLE)) != 0
        || source.createChild(KQC::tagKey(KQC::TAG_SAMPLE_CONFIG)) != 0 || sample->writeTo(source) != 0)
        return boost::shared_ptr<KQSEnvConfig>();

    KQC::KQCOptionalProperty<KQC::KQCQoSSet> sampleQoS;
    sample->getQoSes(sampleQoS);
    KQC::KQCQoSSet qos;
    auto copy = [&](const KQC::KQCVocParameter& parameter) {
        // Limits are one set in the record, not one element each.
        if (parameter.getGroup() == "qos") {
            auto found = sampleQoS.get().find(KQC::KQCQoS(parameter.getId(), 0));
            if (sampleQoS.isSpecified() && found != sampleQoS.get().end())
                qos.insert(*found);
            return;
        }
        copyParameter(parameter, source, target);
    };
    for (const std::string& category : categories) {
        std::vector<KQC::KQCVocParameter> chosen;
        if (vocabulary->getParameters({"applicable_conf", category}, chosen) != 0 || chosen.empty()) {
            KQS_LOG().put(1, "[%s] specified category %s is not found in vocabulary or not applicable.",
                          "filterConfig", category.c_str());
            return boost::shared_ptr<KQSEnvConfig>();
        }
        for (const KQC::KQCVocParameter& parameter : chosen)
            copy(parameter);
    }
    for (const std::string& name : parameters) {
        const KQC::KQCVocParameter* parameter = vocabulary->findParameter(name);
        if (!parameter) {
            KQS_LOG().put(1, "[%s] specified parameter %s is not found in vocabulary", "filterConfig", name.c_str());
            return boost::shared_ptr<KQSEnvConfig>();
        }
        copy(*parameter);
    }
    boost::shared_ptr<KQSEnvConfig> result = boost::make_shared<KQSEnvConfig>();
    target.top();
    if (target.enter(KQC::tagKey(KQC::TAG_ENV_SAMPLE)) == 0 && target.enter(KQC::tagKey(KQC::TAG_SAMPLE_CONFIG)) == 0
        && result->readFrom(target) != 0)
        return boost::shared_ptr<KQSEnvConfig>();
    if (!qos.empty())
        result->setQoSes(qos);
    return result;
}

int KQSEnvMLocal::set(const KQC::KQCEID& eid, const KQC::KQCEnvConfig& config,
                      boost::shared_ptr<KQC::KQCEnvConfig>* out, const KQC::KQCStringSet& tasks, bool,
                      const char* text)
{
    return KQC::guardedCall("set", [&] {
        int rc = KQC::KQCAccessChecker::accessCheck(KQC::KQCAccessChecker::getClientContext(access()), eid,
                                                   KQC::RIGHT_ENV_SET);
        if (rc != KQS_OK)
            return rc;
        SetAssistant assistant(*this, eid);
        int veid = 0;
        rc = assistant.resolve(veid);
        if (rc != KQS_OK)
            return rc;
        KQSEnvConfig wanted(config);
        rc = assistant.fill(wanted, Reporter(*this, tasks));
        if (rc != KQS_OK)
            return rc;
        rc = KQSVEActionSystemLinux::setEnv(*this, veid, wanted, tasks, text);
        if (rc != KQS_OK)
            return rc;
        KQSNotifications(KQC::KQCEID::EID_INVALID, access()).sendCommandConfUpdate(&veid);
        if (out) {
            boost::shared_ptr<KQSEnvConfig> now = Hunter(*this, eid).hunt();
            if (now)
                *out = now;
        }
        return rc;
    });
}

int KQSEnvMLocal::set(const KQC::KQCEID& eid, const KQC::KQCGUID& sampleId, const char* text,
                      const KQC::KQCStringSet& parameters, const KQC::KQCStringSet& categories)
{
    return KQC::guardedCall("set", [&] {
        KQC::KQCEnvSample sample;
        if (KQSSampleMLocal(access()).get(&sample, sampleId) != 0) {
            std::string why = KQC::getErrorMessage();
            KQC::setErrorMessage("can't get specified '%s' sample config : %s", sampleId.toString().c_str(),
                                 why.c_str());
            return int(KQS_ERR_NO_VEID);
        }
        if (!isCompatibleHost(sample)) {
            KQC::setErrorMessage("Sample is not compatible");
            return int(KQS_ERR_NO_VEID);
        }
        KQC::KQCOptionalProperty<std::string> name;
        sample.config->getName(name);
        boost::shared_ptr<KQSEnvConfig> chosen =
            filterConfig(boost::make_shared<KQSEnvConfig>(*sample.config), parameters, categories);
        if (!chosen) {
            KQC::setErrorMessage("no applicable sample parameters found in '%s'", name.get().c_str());
            return int(KQS_ERR_GENERIC);
        }
        chosen->setOriginSample(name.get());
        KQC::KQCEnvM& self = *this;  // through the virtual slot, as any client would
        return self.set(eid, *chosen, nullptr, KQC::KQCStringSet(), false, text);
    });
}

int KQSEnvMLocal::setUserPassword(const KQC::KQCEID& eid, const std::string& user, const std::string& password)
{
    return KQC::guardedCall("setUserPassword", [&] {
        int veid = 0;
        int rc = veidForChange(eid, veid);
        if (rc != KQS_OK)
            return rc;
        return KQSVEActionSystemLinux::setUserPassword(*this, veid, user, password);
    });
}

} // namespace KQS
