#pragma once
// The console's command layer: one command line in, one outcome out.
//
// A command is parsed completely before anything runs (CommandLine.h); a
// malformed one throws UsageError and runs nothing. A command that ran
// yields an Outcome: the manager's int result, the framework's error
// message when that result is not 0, and the command's payload (JSON
// fields, and the same for the readable form).
#include "KQC/Access.h"
#include "KQC/GUID.h"
#include "KQS/EnvM.h"
#include "KQS/SampleM.h"

#include <boost/json.hpp>
#include <functional>
#include <iosfwd>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace kqagent {

// A malformed command. Its text is one line: words echoed from the command
// line may hold control characters, which are shown as '?'.
struct UsageError : std::runtime_error {
    explicit UsageError(const std::string& text) : std::runtime_error(oneLine(text)) {}
    static std::string oneLine(std::string text);
};

class JsonWriter;

struct Outcome {
    int rc = 0;
    std::string error;
    boost::json::object payload;
    // A long list written item by item as the output is produced instead of
    // being built first: in JSON mode the field `streamKey`, after the
    // payload's fields, whose value `writeJson` writes; in the readable form
    // whatever `writeText` prints. Either may be empty.
    std::string streamKey;
    std::function<void(JsonWriter&)> writeJson;
    std::function<void(std::ostream&)> writeText;
};

// A decimal or 0x-prefixed hexadecimal number; UsageError naming `what`.
long long parseNumber(const std::string& text, const char* what);

// The console's client: the rights it was denied, and its progress and
// notifications printed to standard error as they come.
class ConsoleAccessProvider : public KQC::KQCAccessProviderPrototype {
public:
    ConsoleAccessProvider(std::set<int> denied, bool verbose);
    void progress(const std::string& line) override;
    void notify(const std::string& event, const std::string& text) override;

private:
    bool m_verbose;
};

class Session {
public:
    Session(std::set<int> denied, bool verbose);
    const KQC::KQCAccessProvider& access() const { return m_access; }
    // The managers, made through the framework's multiplexers for this
    // host's environment type. UsageError never; a missing manager throws
    // std::runtime_error (the plug-in is not loaded).
    KQC::KQCEnvM& envM();
    KQS::KQSEnvM& kqsEnvM();
    KQS::KQSSampleM& sampleM();
    // 0 with the EID of the CT, or the registry's result (and the outcome
    // filled) when its VEID is unknown.
    int resolve(const struct CtRef& ct, KQC::KQCEID& eid, Outcome& outcome);

private:
    KQC::KQCAccessProvider m_access;
    boost::shared_ptr<KQC::KQCEnvM> m_envM;
    boost::shared_ptr<KQS::KQSEnvM> m_kqsEnvM;
    boost::shared_ptr<KQS::KQSSampleM> m_sampleM;
};

// A CT of the command line: an environment identifier or a VEID.
struct CtRef {
    bool byVeid = false;
    int veid = 0;
    KQC::KQCEID eid;
};
// UsageError when the text is neither a GUID nor a decimal VEID.
CtRef parseCT(const std::string& text);

// The work of one parsed command, run once the plug-in is loaded.
typedef std::function<Outcome(Session&)> Runner;

// Fills `outcome` from a manager's result.
Outcome resultOf(int rc);

} // namespace kqagent
