// A sample file of the container-scripts folder, read by the sample store:
// whatever the file holds, the listing neither crashes nor loses the other
// samples, and a sample that is listed can be written back and listed
// again under the same identifier.
#include "FuzzHost.h"

#include "KQSSampleMLocal.h"

#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    kqfuzz::FuzzHost& host = kqfuzz::FuzzHost::instance();
    host.write("/etc/sysconfig/kq-scripts/ve-fuzz.conf-sample", std::string(reinterpret_cast<const char*>(data), size));
    host.write("/etc/sysconfig/kq-scripts/ve-other.conf-sample", "HOSTNAME=\"other\"\n");

    KQC::KQCEnvSampleList samples;
    KQS::KQSSampleMLocal::getSamples(samples);
    kqfuzz::require(!samples.empty(), "the well-formed sample is listed");
    for (const KQC::KQCEnvSample& sample : samples) {
        KQC::KQCOptionalProperty<std::string> name;
        sample.config->getName(name);
        if (name.get() != "fuzz")
            continue;
        kqfuzz::require(KQS::KQSSampleMLocal::saveSample(sample) == 0, "a listed sample can be written");
        KQC::KQCEnvSampleList again;
        KQS::KQSSampleMLocal::getSamples(again);
        bool found = false;
        for (const KQC::KQCEnvSample& other : again)
            found = found || other.id == sample.id;
        kqfuzz::require(found, "a written sample keeps its identifier");
    }
    return 0;
}
