#pragma once
// The statistics interface of the management library and its records:
// traffic per class, disk quota, resource counters (UBC), CPU time, load
// average and SLM memory-group statistics of one container.
//
// Every query exists twice: by VEID and by environment identifier. Results
// are 0, or non-zero with the thread's error message set.
// Records are values; KQSSLMGroup owns its reply buffer and the views into
// it, so it is not copyable. Thread safety as for any value.
#include "KQC/GUID.h"
#include "KQC/LoadAvg.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace KQS {

// One traffic class of one container: its id and four counters in the
// order the traffic tool prints them (bytes in, bytes out, packets in,
// packets out).
template <class Id>
struct KQSNetClass {
    Id classId = 0;
    uint64_t counters[4] = {0, 0, 0, 0};
};
typedef std::vector<KQSNetClass<int>> KQSNetClassList;

// Disk quota of one container; block values in KiB.
struct KQSQuotaStats {
    uint64_t blockUsage = 0;
    uint64_t blockSoft = 0;
    uint64_t blockHard = 0;
    uint32_t blockGrace = 0;
    uint32_t blockExpiry = 0;
    uint64_t inodeUsage = 0;
    uint64_t inodeSoft = 0;
    uint64_t inodeHard = 0;
    uint32_t inodeGrace = 0;
    uint32_t inodeExpiry = 0;
    uint64_t ugidA = 0;
    uint64_t ugidB = 0;
};

// One resource parameter: its name and the counters an operator reads.
struct KQSUbc {
    std::string name;
    uint64_t average = 0;
    uint64_t limit = 0;
    uint64_t barrier = 0;
};
typedef std::vector<KQSUbc> KQSUbcList;

// CPU use: [0] system, [1] user, [2] nice (jiffies), [3] idle and
// [4] starvation (hundredths of a second).
struct KQSVeCPULoad {
    uint64_t values[5] = {0, 0, 0, 0, 0};
};

// A view of one element of an SLM reply: a 4-byte header (low 24 bits the
// value's size, high 8 bits the type) and the value behind it. The view
// does not own the bytes; it is valid while its group's buffer is.
class KQSSLMParam {
public:
    static const unsigned SLMHeaderSize = 4;
    enum Type { GROUP = 1, U32 = 129, U64 = 131, LIST = 132 };

    KQSSLMParam() = default;
    explicit KQSSLMParam(const unsigned char* element) : m_element(element) {}

    bool isNull() const { return m_element == nullptr; }
    unsigned type() const;
    unsigned size() const;
    // 0 with a 4-byte value; -1 when the value is not exactly 4 bytes.
    int getValue(unsigned& value) const;
    // 0 with the address just behind the header.
    int getValue(const char*& value) const;
    // The value read as a number of its own size (4 or 8 bytes); 0 else.
    uint64_t number() const;

private:
    const unsigned char* m_element = nullptr;
};

// SLM group statistics: the kernel writes its reply into `buffer`; parse()
// indexes the elements as params[B][A].
class KQSSLMGroup {
public:
    static const unsigned BufferSize = 16384;

    KQSSLMGroup() : buffer(BufferSize, 0) {}
    KQSSLMGroup(const KQSSLMGroup&) = delete;
    KQSSLMGroup& operator=(const KQSSLMGroup&) = delete;

    // Reads the elements inside the root: a list opener, then triples
    // (A, B, value). 0 when the last element ends exactly on the root's
    // end; -1 for a wrong type, a wrong size, or an element running past
    // the root (or past the buffer). params is rebuilt on every call.
    int parse();

    KQSSLMParam root;
    std::map<int, std::map<int, KQSSLMParam>> params;
    std::vector<unsigned char> buffer;
};

class KQSKqStatBase {
public:
    virtual ~KQSKqStatBase() = default;
};

class KQSKqStat : public KQSKqStatBase {
public:
    virtual int getNetInfo(int veid, KQSNetClassList* out) = 0;
    virtual int getNetInfo(const KQC::KQCEID& eid, KQSNetClassList* out) = 0;
    virtual int getQuota(int veid, KQSQuotaStats* out) = 0;
    virtual int getQuota(const KQC::KQCEID& eid, KQSQuotaStats* out) = 0;
    virtual int getUbc(int veid, KQSUbcList* out) = 0;
    virtual int getUbc(const KQC::KQCEID& eid, KQSUbcList* out) = 0;
    virtual int getCPUInfo(int veid, KQSVeCPULoad* out) = 0;
    virtual int getCPUInfo(const KQC::KQCEID& eid, KQSVeCPULoad* out) = 0;
    virtual int getLoadAvg(int veid, KQC::KQCLoadAvg* out) = 0;
    virtual int getLoadAvg(const KQC::KQCEID& eid, KQC::KQCLoadAvg* out) = 0;
    virtual int getSLM(int veid, KQSSLMGroup* out) = 0;
    virtual int getSLM(const KQC::KQCEID& eid, KQSSLMGroup* out) = 0;
};

} // namespace KQS
