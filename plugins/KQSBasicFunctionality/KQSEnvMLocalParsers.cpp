// Reading configurations in the control tool's text form and writing them
// back, with the parser of the configuration's platform and architecture;
// and the host settings file.
#include "KQSEnvMLocal.h"
#include "KQSResult.h"

#include "KQC/Boundary.h"

#include "KQSBashConfig.h"

#include "KQC/Error.h"
#include "KQC/HostPaths.h"
#include "KQC/Tags.h"

#include <boost/make_shared.hpp>

#include <mutex>
#include <sstream>

namespace KQS {
namespace {

std::mutex localParserMutex;
boost::shared_ptr<KQSEnvConfigBashParser> localParser;

// The value of a vocabulary's own parameter; false when the parameter is
// there without a value. `present` tells whether the parameter is there.
bool vocabularyValue(const KQC::KQCVocabulary& vocabulary, const char* id, bool& present, std::string& value)
{
    const KQC::KQCVocParameter* parameter = vocabulary.findParameter(id);
    present = parameter != nullptr;
    return present && parameter->getString(KQC::TAG_VOC_VALUE, value) == 0;
}

void architectureAndPlatform(const KQSEnvConfig& config, std::string& architecture, std::string& platform)
{
    KQC::KQCOptionalProperty<std::string> arch;
    config.getArchitecture(arch);
    architecture = arch.get();
    KQC::KQCOptionalProperty<KQC::KQCOS> os;
    config.getOS(os);
    platform = os.get().platform.get();
}

} // namespace

int KQSEnvMLocal::getVtSettings(KQSVtSettings& settings)
{
    const std::string path = KQC::hostPath("/etc/sysconfig/kq");
    return getBashConfig(path.c_str(), *KQSKQConfigBashParser::getInstance(), settings);
}

boost::shared_ptr<KQSEnvConfigBashParser> KQSEnvMLocal::getLocalEnvConfigParser()
{
    std::lock_guard<std::mutex> guard(localParserMutex);
    if (!localParser) {
        KQC::KQCVocabularyPtr vocabulary = KQC::vocCacheLocal()->getVocabulary();
        if (vocabulary) {
            KQC::KQCVocMap vocabularies;
            vocabularies.push_back(vocabulary);
            localParser = KQSEnvConfigBashParser::getInstance(vocabularies);
        }
    }
    return localParser;
}

boost::shared_ptr<KQSEnvConfigBashParser> KQSEnvMLocal::createParserIfMatchedArchitectureAndPlatform(
    const boost::shared_ptr<KQC::KQCVocMap>& vocabularies, const std::string& architecture, const std::string& platform)
{
    if (!vocabularies)
        return boost::shared_ptr<KQSEnvConfigBashParser>();
    for (const KQC::KQCVocabularyPtr& vocabulary : *vocabularies) {
        if (!vocabulary)
            continue;
        bool present = false;
        std::string value;
        bool readable = vocabularyValue(*vocabulary, "platform", present, value);
        // Kept as it always was: a vocabulary that does not say what it
        // describes ends the search, even if a later one would match.
        if (!present)
            break;
        if (!readable || KQC::compareNoCase(value, platform) != 0)
            continue;
        readable = vocabularyValue(*vocabulary, "architecture", present, value);
        if (!present)
            break;
        if (!readable || KQC::compareNoCase(value, architecture) != 0)
            continue;
        return KQSEnvConfigBashParser::getInstance(*vocabularies);
    }
    return boost::shared_ptr<KQSEnvConfigBashParser>();
}

boost::shared_ptr<KQSEnvConfigBashParser> KQSEnvMLocal::lookupFirstMatchedParser(const std::string& architecture,
                                                                                 const std::string& platform)
{
    KQC::KQCVocabularyPtr local = KQC::vocCacheLocal()->getVocabulary();
    if (local) {
        boost::shared_ptr<KQC::KQCVocMap> own = boost::make_shared<KQC::KQCVocMap>();
        own->push_back(local);
        boost::shared_ptr<KQSEnvConfigBashParser> parser =
            createParserIfMatchedArchitectureAndPlatform(own, architecture, platform);
        if (parser)
            return parser;
    }
    boost::shared_ptr<KQC::KQCVocCache> cache = KQC::vocCache();
    boost::shared_ptr<const KQC::KQCVocabularyList> known = cache ? cache->getList() : nullptr;
    if (!known || known->empty())
        return boost::shared_ptr<KQSEnvConfigBashParser>();
    for (const KQC::KQCVocabularyPtr& vocabulary : *known) {
        boost::shared_ptr<KQC::KQCVocMap> one =
            boost::make_shared<KQC::KQCVocMap>(vocabulary, std::set<std::string>());
        boost::shared_ptr<KQSEnvConfigBashParser> parser =
            createParserIfMatchedArchitectureAndPlatform(one, architecture, platform);
        if (parser)
            return parser;
    }
    return boost::shared_ptr<KQSEnvConfigBashParser>();
}

int KQSEnvMLocal::getVirtualConfig(boost::shared_ptr<KQC::KQCVEnvConfig>& out,
                                   const boost::shared_ptr<KQC::KQCNativeConfig>& native)
{
    return KQC::guardedCall("getVirtualConfig", [&] { return virtualConfigOf(out, native); });
}

int KQSEnvMLocal::virtualConfigOf(boost::shared_ptr<KQC::KQCVEnvConfig>& out,
                                  const boost::shared_ptr<KQC::KQCNativeConfig>& native)
{
    boost::shared_ptr<KQSNativeConfig> text = boost::dynamic_pointer_cast<KQSNativeConfig>(native);
    if (!text) {
        KQC::setErrorMessage("wrong type provided");
        return KQS_ERR_GENERIC;
    }
    boost::shared_ptr<KQSEnvConfigBashParser> local = getLocalEnvConfigParser();
    if (!local) {
        KQC::setErrorMessage("failed to read local vocabulary");
        return KQS_ERR_READ;
    }
    // A first reading with the host's parser tells whose the text is.
    boost::shared_ptr<KQSEnvConfig> first = boost::make_shared<KQSEnvConfig>();
    out = first;
    std::istringstream firstInput(text->getText());
    if (local->getConfig(firstInput, *first) != 0) {
        KQC::setErrorMessage("failed to detect architecture or platform from native configuration");
        return KQS_ERR_NATIVE_PARSE;
    }
    std::string architecture, platform;
    architectureAndPlatform(*first, architecture, platform);
    boost::shared_ptr<KQSEnvConfigBashParser> matched = lookupFirstMatchedParser(architecture, platform);
    if (!matched) {
        KQC::setErrorMessage("failed to find matching vocabulary");
        return KQS_ERR_NO_VOCABULARY;
    }
    boost::shared_ptr<KQSEnvConfig> second = boost::make_shared<KQSEnvConfig>();
    std::istringstream secondInput(text->getText());
    if (matched->getConfig(secondInput, *second) != 0) {
        KQC::setErrorMessage("failed to parse native configuration");
        return KQS_ERR_NATIVE_PARSE;
    }
    out = second;
    return 0;
}

int KQSEnvMLocal::getNativeConfig(boost::shared_ptr<KQC::KQCNativeConfig>& out,
                                  const boost::shared_ptr<KQC::KQCVEnvConfig>& config)
{
    return KQC::guardedCall("getNativeConfig", [&] { return nativeConfigOf(out, config); });
}

int KQSEnvMLocal::nativeConfigOf(boost::shared_ptr<KQC::KQCNativeConfig>& out,
                                 const boost::shared_ptr<KQC::KQCVEnvConfig>& config)
{
    boost::shared_ptr<KQSEnvConfig> virtualConfig = boost::dynamic_pointer_cast<KQSEnvConfig>(config);
    if (!virtualConfig) {
        KQC::setErrorMessage("wrong type provided");
        return KQS_ERR_GENERIC;
    }
    std::string architecture, platform;
    architectureAndPlatform(*virtualConfig, architecture, platform);
    boost::shared_ptr<KQSEnvConfigBashParser> parser = lookupFirstMatchedParser(architecture, platform);
    if (!parser) {
        KQC::setErrorMessage("failed to find matching vocabulary");
        return KQS_ERR_READ;
    }
    std::ostringstream text;
    if (parser->putConfig(*virtualConfig, text, nullptr, false) != 0) {
        KQC::setErrorMessage("failed to convert virtual configuration to native format");
        return KQS_ERR_READ;
    }
    out = boost::make_shared<KQSNativeConfig>(text.str());
    return 0;
}

} // namespace KQS
