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
    return m_classes.add(name, creator);
}

int KQCPluginFactory::unregisterClass(const std::string& name)
{
    return m_classes.remove(name);
}

bool KQCPluginFactory::isRegistered(const std::string& name) const
{
    return m_classes.contains(name);
}

int KQCPluginFactory::create(const std::string& name, const KQCPluginParams& params,
                             boost::shared_ptr<KQCPluginPrototype>& out) const
{
    Creator creator = nullptr;
    if (m_classes.find(name, creator) != 0)
        return -1;
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
