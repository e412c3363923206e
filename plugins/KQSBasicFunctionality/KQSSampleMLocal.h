#pragma once
// Configuration samples of this host, kept as shell-style files
// "ve-<name>.conf-sample" in the container-scripts folder, and the sample
// manager built on them.
//
// The manager holds no state between calls: every operation reads the
// folder afresh. Operations return 0 or -1 with the thread's error message
// set; none throws. Thread safety: objects serve one request; the static
// store functions may be called from any thread (two writers of one sample
// race like two writers of one file: the last rename wins, never a mix).
//
// Identifiers: a sample file that records a UUID is known by it; otherwise
// by the MD5 digest of the host's own EID text followed by the file's
// canonical path, so the same file on the same host keeps its identifier.
// Names: a sample's name is its file name between "ve-" and
// ".conf-sample"; a name holding "/" or a NUL could leave the folder and
// is refused when writing.
#include "KQC/Request.h"
#include "KQS/SampleM.h"

#include <string>

namespace KQS {

class KQSSampleMLocal : public KQC::KQCRequestModificatorLocal<KQSSampleM> {
public:
    explicit KQSSampleMLocal(const KQC::KQCAccessProvider& access);

    int add(const KQC::KQCEnvSample& sample, KQC::KQCGUID* id) override;
    int get(std::vector<KQC::KQCEnvSample>* out, const KQC::KQCGUIDSet& ids) override;
    int get(KQC::KQCEnvSample* out, const KQC::KQCGUID& id) override;
    int del(const KQC::KQCGUIDSet& ids) override;
    int set(const KQC::KQCGUID& id, const KQC::KQCEnvSample& sample, KQC::KQCEnvSample* out) override;
    int clone(const KQC::KQCGUID& id, KQC::KQCGUID* newId) override;
    int cloneToSample(const KQC::KQCEID& eid, KQC::KQCGUID* newId) override;
    // Stores a sample that comes from elsewhere. It keeps its GUID when the
    // GUID is valid and no stored sample has it, else it gets a new one; an
    // empty name becomes "Anonymous_template", a name in use a unique
    // variant (generateSampleName); a VEID or UUID it carries is dropped.
    // Needs right 63 on the host or right 23 on its containers
    // (KQSEnvMLocal::checkAccessToChilds): 414 otherwise. -1 without a
    // configuration or when the file cannot be written (nothing is).
    int importSample(const KQC::KQCEnvSample& sample, KQC::KQCGUID* id) override;
    using KQSSampleM::importSample;

    // `name` unless a stored sample has it, else a unique variant of it.
    std::string generateSampleName(const std::string& name);
    // The host's system name ("Linux" when it cannot be told), kept after
    // the first call.
    static std::string& getSystemVersion();

    // ---- the store ----
    static std::string getSystemSampleConfDir();
    static std::string getSamplePath(const std::string& name);
    static std::string getSamplePath(const KQC::KQCEnvSample& sample);
    static void getPathGuid(const std::string& path, KQC::KQCGUID& out);
    // Appends every readable sample of the folder; files that cannot be
    // read or parsed, and our temporaries, are left out.
    static void getSamples(KQC::KQCEnvSampleList& out);
    // Writes one sample file atomically, keeping the comments and order of
    // the file it replaces. 0; -3 without a configuration parser; -1 for a
    // bad name or a failed write (the old file is then untouched).
    [[nodiscard]] static int saveSample(const KQC::KQCSampleConf& sample);

private:
    int addSample(const KQC::KQCEnvSample& sample, KQC::KQCGUID* id);
    int getSamplesOf(std::vector<KQC::KQCEnvSample>* out, const KQC::KQCGUIDSet& ids);
    int getOne(KQC::KQCEnvSample* out, const KQC::KQCGUID& id);
    int delSamples(const KQC::KQCGUIDSet& ids);
};

} // namespace KQS
