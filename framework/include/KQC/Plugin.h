#pragma once
// Plug-in classes: parameter records read from messages, the parsers that
// turn a message node into the right record type, and the registry of
// classes that the agent instantiates by name.
//
// A parameter record is a message node that names its own type: the
// strings TAG_PARAMS_TYPE (the type name) and TAG_PARAMS_NAMESPACE (its
// namespace, "" for most) followed by the type's fields. The parser
// registry of a record family finds the parser factory registered for that
// (namespace, type) and lets the record read itself.
//
// Ownership: registries keep the factories given to them by pointer: a
// parser factory unregisters itself when destroyed. Records and plug-in
// objects are shared.
// Thread safety: registries are locked; records belong to one thread.
// Failure: 0, or -1 with the thread's error message set.
#include "KQC/ClassRegistry.h"
#include "KQC/Error.h"
#include "KQC/Message.h"

#include <boost/shared_ptr.hpp>

#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace KQC {

// The base of every parameter record.
class KQCPluginParams {
public:
    virtual ~KQCPluginParams() = default;
    // The fields of this record (not the type name); -1 when one is missing.
    virtual int readFrom(KQCMessageIterator& it);
    // The type name, then the fields.
    virtual int writeTo(KQCMessageIterator& it) const;
    virtual std::string getTypeName() const { return "plugin_paramsType"; }
    virtual std::string getTypeNamespace() const { return ""; }
};

// Parameters of an external program: its argument vector, program first.
class KQCPluginParamsExtern : public KQCPluginParams {
public:
    // -1 when there is no argument at all (no program to run).
    int readFrom(KQCMessageIterator& it) override;
    int writeTo(KQCMessageIterator& it) const override;
    std::string getTypeName() const override { return "plugin_params_externType"; }

    std::vector<std::string> args;
};

// Makes empty records of one type of the family `Base`.
template <class Base>
class KQCParserFactory {
public:
    virtual ~KQCParserFactory() = default;
    virtual boost::shared_ptr<Base> create() const = 0;
};

template <class Base>
class KQCParserRegistry {
public:
    typedef std::pair<std::string, std::string> Key;  // (namespace, type)

    // 0, or -1 when the type has a parser already.
    int registerFactory(const std::string& ns, const std::string& type, const KQCParserFactory<Base>* factory)
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        if (!m_factories.emplace(Key(ns, type), factory).second) {
            setErrorMessage("record type '%s' has a parser already", type.c_str());
            return -1;
        }
        return 0;
    }
    void unregisterFactory(const std::string& ns, const std::string& type, const KQCParserFactory<Base>* factory)
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        auto it = m_factories.find(Key(ns, type));
        if (it != m_factories.end() && it->second == factory)
            m_factories.erase(it);
    }
    // Reads the record at the iterator's node: 0 with it, -1 when the node
    // names no type, the type is unknown or its fields do not read.
    int parse(const KQCMessageIterator& node, boost::shared_ptr<Base>& out) const
    {
        std::string ns, type;
        if (node.getString(TAG_PARAMS_TYPE, type) != 0) {
            setErrorMessage("the record names no type");
            return -1;
        }
        node.getString(TAG_PARAMS_NAMESPACE, ns);
        const KQCParserFactory<Base>* factory = nullptr;
        {
            std::lock_guard<std::mutex> guard(m_mutex);
            auto it = m_factories.find(Key(ns, type));
            if (it != m_factories.end())
                factory = it->second;
        }
        if (!factory) {
            setErrorMessage("no parser for record type '%s'", type.c_str());
            return -1;
        }
        boost::shared_ptr<Base> record = factory->create();
        KQCMessageIterator fields(node);
        if (!record || record->readFrom(fields) != 0) {
            setErrorMessage("can't read a record of type '%s'", type.c_str());
            return -1;
        }
        out = record;
        return 0;
    }

private:
    mutable std::mutex m_mutex;
    std::map<Key, const KQCParserFactory<Base>*> m_factories;
};

// The registry of a record family; defined in the framework library, so
// that every plug-in shares one per family.
template <class Base>
KQCParserRegistry<Base>& parserRegistry();

template <>
KQCParserRegistry<KQCPluginParams>& parserRegistry<KQCPluginParams>();

// The parser factory of record type `Derived` in family `Base`: registers
// itself under the derived record's namespace and type name while it lives
// (a static object of the unit that defines the record).
template <class Base, class Derived>
class KQCDerivedParserFactoryT : public KQCParserFactory<Base> {
public:
    KQCDerivedParserFactoryT()
    {
        Derived sample;
        m_ns = sample.getTypeNamespace();
        m_type = sample.getTypeName();
        parserRegistry<Base>().registerFactory(m_ns, m_type, this);
    }
    ~KQCDerivedParserFactoryT() override { parserRegistry<Base>().unregisterFactory(m_ns, m_type, this); }
    boost::shared_ptr<Base> create() const override { return boost::shared_ptr<Base>(new Derived); }

private:
    std::string m_ns;
    std::string m_type;
};

// Anything the plug-in factory makes.
class KQCPluginPrototype {
public:
    virtual ~KQCPluginPrototype() = default;
};

// The classes the agent can instantiate by name from a parameter record.
class KQCPluginFactory {
public:
    // Makes an object from the record; empty with the message set on failure.
    typedef boost::shared_ptr<KQCPluginPrototype> (*Creator)(const KQCPluginParams& params);

    // 0, or -1 when the name is taken or the creator is null.
    int registerClass(const std::string& name, Creator creator);
    // 0, or -1 when nothing is registered under the name.
    int unregisterClass(const std::string& name);
    bool isRegistered(const std::string& name) const;
    // 0 with a new object of the class, or -1.
    int create(const std::string& name, const KQCPluginParams& params,
               boost::shared_ptr<KQCPluginPrototype>& out) const;

private:
    KQCClassRegistry<Creator> m_classes{"plug-in class"};
};

// The process-wide registry.
KQCPluginFactory* getPluginFactory();

} // namespace KQC
