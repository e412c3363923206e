#include "KQS/BashParsers.h"

#include "EnvConfigKeys.h"
#include "KQC/Error.h"
#include "KQS/ShellSyntax.h"
#include "TextHelpers.h"

#include <algorithm>
#include <unordered_map>
#include <utility>

namespace KQS {
namespace {

using KQC::lowerCase;
using KQC::upperCase;

int parseFile(std::istream& input, KQSShellFile& file)
{
    if (file.parse(input) == 0)
        return 0;
    std::string problem = KQC::getErrorMessage();
    KQC::setErrorMessage("malformed configuration: %s", problem.c_str());
    return -1;
}

// Which entry of the key table each key of a file is: a file is looked up
// key by key, not the table key by key through the whole file.
const std::unordered_map<std::string, size_t>& codecSlots()
{
    static const std::unordered_map<std::string, size_t> slots = [] {
        std::unordered_map<std::string, size_t> made;
        const std::vector<EnvConfigKeys::KeyCodec>& codecs = EnvConfigKeys::table();
        for (size_t slot = 0; slot < codecs.size(); ++slot)
            made.emplace(codecs[slot].key, slot);
        return made;
    }();
    return slots;
}

// The last value the file gives each key of `slots` (as bash would leave
// it), by slot; null where the file does not give the key.
std::vector<const std::string*> lastValues(const KQSShellFile& file,
                                           const std::unordered_map<std::string, size_t>& slots, size_t count)
{
    std::vector<const std::string*> values(count, nullptr);
    for (const KQSShellLine& line : file.lines()) {
        if (!line.isAssignment)
            continue;
        auto slot = slots.find(line.key);
        if (slot != slots.end())
            values[slot->second] = &line.value;
    }
    return values;
}

int readQoSes(const std::vector<const std::string*>& values, const std::vector<std::string>& ids,
              KQSEnvConfig& config)
{
    KQC::KQCQoSSet qoses;
    for (size_t slot = 0; slot < ids.size(); ++slot) {
        if (!values[slot])
            continue;
        KQC::KQCQoS qos;
        if (EnvConfigKeys::parseQoS(ids[slot], *values[slot], qos) != 0)
            return -1;
        qoses.insert(qos);
    }
    if (!qoses.empty())
        config.setQoSes(qoses);
    return 0;
}

} // namespace

// ---- container configurations ----

KQSEnvConfigBashParser::KQSEnvConfigBashParser(const KQC::KQCVocMap& vocabularies)
{
    std::vector<KQC::KQCVocParameter> limits;
    vocabularies.getCategory("qos", limits);
    vocabularies.getCategory("ubc", limits);
    for (const KQC::KQCVocParameter& parameter : limits)
        if (std::find(m_qosIds.begin(), m_qosIds.end(), lowerCase(parameter.getId())) == m_qosIds.end())
            m_qosIds.push_back(lowerCase(parameter.getId()));
    // A file names a limit by its identifier in upper case.
    for (size_t slot = 0; slot < m_qosIds.size(); ++slot)
        m_qosSlots.emplace(upperCase(m_qosIds[slot]), slot);
    vocabularies.getValue("platform", m_platform);
    vocabularies.getValue("architecture", m_architecture);
}

boost::shared_ptr<KQSEnvConfigBashParser> KQSEnvConfigBashParser::getInstance(const KQC::KQCVocMap& vocabularies)
{
    return boost::shared_ptr<KQSEnvConfigBashParser>(new KQSEnvConfigBashParser(vocabularies));
}

int KQSEnvConfigBashParser::getConfig(std::istream& input, KQSEnvConfig& config) const
{
    KQSShellFile file;
    if (parseFile(input, file) != 0)
        return -1;
    KQSEnvConfig parsed;
    // In the table's order, whatever the file's: some keys build on others.
    const std::vector<EnvConfigKeys::KeyCodec>& codecs = EnvConfigKeys::table();
    const std::vector<const std::string*> values = lastValues(file, codecSlots(), codecs.size());
    for (size_t slot = 0; slot < codecs.size(); ++slot)
        if (values[slot] && codecs[slot].read(*values[slot], parsed) != 0)
            return -1;
    if (readQoSes(lastValues(file, m_qosSlots, m_qosIds.size()), m_qosIds, parsed) != 0)
        return -1;
    EnvConfigKeys::addDefaultHostRouted(parsed);
    // The file is of the vocabulary's platform; say so where it does not.
    KQC::KQCOptionalProperty<KQC::KQCOS> os;
    parsed.getOS(os);
    if (!m_platform.empty() && !os.get().platform.isSpecified()) {
        os.get().platform.set(m_platform);
        parsed.setOS(os.get());
    }
    KQC::KQCOptionalProperty<std::string> architecture;
    parsed.getArchitecture(architecture);
    if (!m_architecture.empty() && !architecture.isSpecified())
        parsed.setArchitecture(m_architecture);
    config = std::move(parsed);
    return 0;
}

KQSConfigDiff KQSEnvConfigBashParser::toPairs(const KQSEnvConfig& config) const
{
    KQSConfigDiff pairs;
    for (const EnvConfigKeys::KeyCodec& codec : EnvConfigKeys::table()) {
        std::string text;
        if (codec.write(config, text))
            pairs.push_back(std::make_pair(std::string(codec.key), text));
    }
    KQC::KQCOptionalProperty<KQC::KQCQoSSet> qoses;
    config.getQoSes(qoses);
    for (const KQC::KQCQoS& qos : qoses.get())
        if (isValidShellKey(upperCase(qos.id)))
            pairs.push_back(std::make_pair(upperCase(qos.id), EnvConfigKeys::formatQoS(qos)));
    return pairs;
}

int KQSEnvConfigBashParser::putConfig(const KQSEnvConfig& config, std::ostream& output, std::istream* old,
                                      bool keepOld) const
{
    return writeShellFile(toPairs(config), output, old, keepOld);
}

int KQSEnvConfigBashParser::diffConfig(const KQSEnvConfig& old, const KQSEnvConfig& now, KQSConfigDiff& changes) const
{
    KQSConfigDiff before = toPairs(old);
    for (const auto& pair : toPairs(now)) {
        auto same = std::find(before.begin(), before.end(), pair);
        if (same == before.end())
            changes.push_back(pair);
    }
    return 0;
}

// ---- host settings ----

boost::shared_ptr<KQSKQConfigBashParser> KQSKQConfigBashParser::getInstance()
{
    static boost::shared_ptr<KQSKQConfigBashParser> instance(new KQSKQConfigBashParser);
    return instance;
}

int KQSKQConfigBashParser::getConfig(std::istream& input, KQSVtSettings& settings) const
{
    KQSShellFile file;
    if (parseFile(input, file) != 0)
        return -1;
    KQSVtSettings parsed;
    for (const auto& entry : file.values())
        parsed.setParam(entry.first, entry.second);
    settings = parsed;
    return 0;
}

int KQSKQConfigBashParser::putConfig(const KQSVtSettings& settings, std::ostream& output, std::istream* old,
                                     bool keepOld) const
{
    KQSConfigDiff pairs;
    for (const auto& entry : settings.getParams())
        pairs.push_back(std::make_pair(upperCase(entry.first), entry.second));
    return writeShellFile(pairs, output, old, keepOld);
}

// ---- any file ----

boost::shared_ptr<KQSRawConfigBashParser> KQSRawConfigBashParser::getInstance()
{
    static boost::shared_ptr<KQSRawConfigBashParser> instance(new KQSRawConfigBashParser);
    return instance;
}

int KQSRawConfigBashParser::getConfig(std::istream& input, std::map<std::string, std::string>& values) const
{
    KQSShellFile file;
    if (parseFile(input, file) != 0)
        return -1;
    values = file.values();
    return 0;
}

int KQSRawConfigBashParser::putConfig(const std::map<std::string, std::string>& values, std::ostream& output,
                                      std::istream* old, bool keepOld) const
{
    KQSConfigDiff pairs(values.begin(), values.end());
    return writeShellFile(pairs, output, old, keepOld);
}

} // namespace KQS
