#include "Console.h"

#include "KQC/Error.h"
#include "KQC/Files.h"
#include "KQC/Functionality.h"
#include "KQS/Env.h"
#include "KQS/Functionality.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

namespace kqagent {
namespace {

void writeLine(const std::string& text)
{
    std::string line = text + "\n";
    // Standard error is the last place left to report a failure to write
    // to standard error: a lost progress line is all that can happen.
    if (KQC::writeAll(2, line.data(), line.size()) != 0)
        return;
}

bool allDigits(const std::string& text)
{
    if (text.empty())
        return false;
    for (char c : text)
        if (c < '0' || c > '9')
            return false;
    return true;
}

} // namespace

std::string UsageError::oneLine(std::string text)
{
    while (!text.empty() && (text.back() == '\n' || text.back() == ' '))
        text.pop_back();
    for (char& c : text)
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F)
            c = '?';
    return text;
}

long long parseNumber(const std::string& text, const char* what)
{
    bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    std::string digits = hex ? text.substr(2) : text;
    bool negative = !hex && !digits.empty() && digits[0] == '-';
    if (negative)
        digits = digits.substr(1);
    if (digits.empty() || digits.size() > 18)
        throw UsageError(std::string("bad ") + what + " '" + text + "'");
    for (char c : digits) {
        bool ok = hex ? std::isxdigit(static_cast<unsigned char>(c)) : (c >= '0' && c <= '9');
        if (!ok)
            throw UsageError(std::string("bad ") + what + " '" + text + "'");
    }
    long long value = std::strtoll(digits.c_str(), nullptr, hex ? 16 : 10);
    return negative ? -value : value;
}

ConsoleAccessProvider::ConsoleAccessProvider(std::set<int> denied, bool verbose)
    : KQCAccessProviderPrototype(
          boost::shared_ptr<KQC::KQCClientContext>(new KQC::KQCClientContext("kqagent", std::move(denied)))),
      m_verbose(verbose)
{
}

void ConsoleAccessProvider::progress(const std::string& line) { writeLine(line); }

void ConsoleAccessProvider::notify(const std::string& event, const std::string& text)
{
    if (m_verbose)
        writeLine("event " + event + ": " + text);
}

Session::Session(std::set<int> denied, bool verbose)
    : m_access(new ConsoleAccessProvider(std::move(denied), verbose))
{
}

KQC::KQCEnvM& Session::envM()
{
    if (!m_envM) {
        auto& mux = KQC::KQCFunctionality<KQC::KQCLibFunctionality>::kit().getEnvMMultiplexer();
        if (mux.create(KQS::KQSEnv::type, m_access, m_envM) != 0)
            throw std::runtime_error(KQC::getErrorMessage());
    }
    return *m_envM;
}

KQS::KQSEnvM& Session::kqsEnvM()
{
    if (!m_kqsEnvM) {
        auto& mux = KQC::KQCFunctionality<KQS::KQSLibFunctionality>::kit().getKQSEnvMMultiplexer();
        if (mux.create(KQS::KQSEnv::type, m_access, m_kqsEnvM) != 0)
            throw std::runtime_error(KQC::getErrorMessage());
    }
    return *m_kqsEnvM;
}

KQS::KQSSampleM& Session::sampleM()
{
    if (!m_sampleM) {
        auto& mux = KQC::KQCFunctionality<KQS::KQSLibFunctionality>::kit().getKQSSampleMMultiplexer();
        if (mux.create(KQS::KQSEnv::type, m_access, m_sampleM) != 0)
            throw std::runtime_error(KQC::getErrorMessage());
    }
    return *m_sampleM;
}

CtRef parseCT(const std::string& text)
{
    CtRef ct;
    if (text.empty())
        throw UsageError("missing CT");
    if (ct.eid.fromString(text) == 0)
        return ct;
    if (!allDigits(text) || text.size() > 10 || std::strtoll(text.c_str(), nullptr, 10) > 2147483647LL)
        throw UsageError("'" + text + "' is neither an environment identifier nor a VEID");
    ct.byVeid = true;
    ct.veid = static_cast<int>(std::strtol(text.c_str(), nullptr, 10));
    return ct;
}

int Session::resolve(const CtRef& ct, KQC::KQCEID& eid, Outcome& outcome)
{
    if (!ct.byVeid) {
        eid = ct.eid;
        return 0;
    }
    int rc = kqsEnvM().findByVeid(ct.veid, eid);
    if (rc != 0)
        outcome = resultOf(rc);
    return rc;
}

Outcome resultOf(int rc)
{
    Outcome outcome;
    outcome.rc = rc;
    if (rc != 0)
        outcome.error = KQC::getErrorMessage();
    return outcome;
}

} // namespace kqagent
