#include "KQC/Plugin.h"

#include "KQC/Error.h"

namespace KQC {

int KQCPluginParams::readFrom(KQCMessageIterator&) { return 0; }

int KQCPluginParams::writeTo(KQCMessageIterator& it) const
{
    if (it.putString(TAG_PARAMS_TYPE, getTypeName()) != 0)
        return -1;
    return it.putString(TAG_PARAMS_NAMESPACE, getTypeNamespace());
}

int KQCPluginParamsExtern::readFrom(KQCMessageIterator& it)
{
    if (KQCPluginParams::readFrom(it) != 0)
        return -1;
    std::vector<std::string> words;
    it.getStrings(TAG_ARGUMENT, words);
    if (words.empty() || words[0].empty()) {
        setErrorMessage("the external program's parameters name no program");
        return -1;
    }
    args = words;
    return 0;
}

int KQCPluginParamsExtern::writeTo(KQCMessageIterator& it) const
{
    if (KQCPluginParams::writeTo(it) != 0)
        return -1;
    it.remove(TAG_ARGUMENT);
    for (const std::string& word : args)
        if (it.addString(TAG_ARGUMENT, word) != 0)
            return -1;
    return 0;
}

template <>
KQCParserRegistry<KQCPluginParams>& parserRegistry<KQCPluginParams>()
{
    // Never destroyed: parser factories of unloading plug-ins unregister
    // from it during static destruction.
    static KQCParserRegistry<KQCPluginParams>* registry = new KQCParserRegistry<KQCPluginParams>;
    return *registry;
}

namespace {

// The framework's own record type is always readable.
const KQCDerivedParserFactoryT<KQCPluginParams, KQCPluginParamsExtern> factoryPluginParamsExtern;

} // namespace

int KQCPluginFactory::registerClass(const std::string& name, Creator creator)
{
    std::lock_guard<std::mutex> guard(m_mutex);
    if (!creator) {
        setErrorMessage("no creator given for plug-in class '%s'", name.c_str());
        return -1;
    }
    if (!m_creators.emplace(name, creator).second) {
        setErrorMessage("plug-in class '%s' is registered already", name.c_str());
        return -1;
    }
    return 0;
}

int KQCPluginFactory::unregisterClass(const std::string& name)
{
    std::lock_guard<std::mutex> guard(m_mutex);
    if (m_creators.erase(name) == 0) {
        setErrorMessage("plug-in class '%s' is not registered", name.c_str());
        return -1;
    }
    return 0;
}

bool KQCPluginFactory::isRegistered(const std::string& name) const
{
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_creators.count(name) != 0;
}

int KQCPluginFactory::create(const std::string& name, const KQCPluginParams& params,
                             boost::shared_ptr<KQCPluginPrototype>& out) const
{
    Creator creator = nullptr;
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        auto it = m_creators.find(name);
        if (it != m_creators.end())
            creator = it->second;
    }
    if (!creator) {
        setErrorMessage("no plug-in class '%s'", name.c_str());
        return -1;
    }
    boost::shared_ptr<KQCPluginPrototype> made = creator(params);
    if (!made)
        return -1;
    out = made;
    return 0;
}

KQCPluginFactory* getPluginFactory()
{
    static KQCPluginFactory* factory = new KQCPluginFactory;
    return factory;
}

} // namespace KQC
