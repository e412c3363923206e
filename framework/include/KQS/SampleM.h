#pragma once
// Configuration samples and the management library's sample-manager
// interface.
//
// A sample is an identifier and a container configuration; containers are
// made from samples. Every operation returns 0 or -1 (or a framework result
// code) with the calling thread's error message set; none throws. Managers
// are made per request by a factory and bound to the request's access
// provider.
#include "KQC/GUID.h"
#include "KQS/EnvConfig.h"

#include <boost/shared_ptr.hpp>
#include <set>
#include <string>
#include <vector>

namespace KQC {

// One sample: its identifier and its configuration (shared; copy the
// configuration before changing it when the record was copied).
struct KQCEnvSample {
    KQCGUID id;
    boost::shared_ptr<KQS::KQSEnvConfig> config;

    KQCEnvSample() = default;
    KQCEnvSample(const KQCGUID& id_, const boost::shared_ptr<KQS::KQSEnvConfig>& config_) : id(id_), config(config_)
    {
    }
    // A sample with its own copy of the configuration.
    KQCEnvSample deepCopy() const
    {
        return KQCEnvSample(id, config ? boost::shared_ptr<KQS::KQSEnvConfig>(new KQS::KQSEnvConfig(*config))
                                       : boost::shared_ptr<KQS::KQSEnvConfig>(new KQS::KQSEnvConfig));
    }
};

typedef std::vector<KQCEnvSample> KQCEnvSampleList;
// A sample as it is written to the store.
typedef KQCEnvSample KQCSampleConf;
typedef std::set<KQCGUID> KQCGUIDSet;

} // namespace KQC

namespace KQS {

class KQSSampleM {
public:
    virtual ~KQSSampleM() = default;

    // Stores a new sample (a new identifier when it has none); its GUID in `id`.
    virtual int add(const KQC::KQCEnvSample& sample, KQC::KQCGUID* id) = 0;
    // Every sample when `ids` is empty, else those whose GUID is in `ids`.
    virtual int get(std::vector<KQC::KQCEnvSample>* out, const KQC::KQCGUIDSet& ids) = 0;
    virtual int get(KQC::KQCEnvSample* out, const KQC::KQCGUID& id) = 0;
    // Deletes the samples of `ids`; every sample when it is empty.
    virtual int del(const KQC::KQCGUIDSet& ids) = 0;
    // Replaces sample `id`; the stored result in `out`.
    virtual int set(const KQC::KQCGUID& id, const KQC::KQCEnvSample& sample, KQC::KQCEnvSample* out) = 0;
    virtual int clone(const KQC::KQCGUID& id, KQC::KQCGUID* newId) = 0;
    // A new sample from an environment's configuration.
    virtual int cloneToSample(const KQC::KQCEID& eid, KQC::KQCGUID* newId) = 0;
    // Takes a sample from elsewhere (another host, a file) into the store;
    // the GUID it is stored under in `id` (may be null).
    virtual int importSample(const KQC::KQCEnvSample& sample, KQC::KQCGUID* id) = 0;
    int importSample(const KQC::KQCEnvSample& sample) { return importSample(sample, nullptr); }
};

} // namespace KQS
