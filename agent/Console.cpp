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

const std::string& Args::peek() const
{
    static const std::string none;
    return empty() ? none : m_words[m_pos];
}

std::string Args::next(const char* what)
{
    if (empty())
        throw UsageError(std::string("missing ") + what);
    return m_words[m_pos++];
}

bool Args::take(const std::string& flag)
{
    if (empty() || m_words[m_pos] != flag)
        return false;
    ++m_pos;
    return true;
}

bool Args::takeValue(const std::string& flag, std::string& value)
{
    if (!take(flag))
        return false;
    if (empty())
        throw UsageError("option " + flag + " needs a value");
    value = m_words[m_pos++];
    return true;
}

void Args::expectEnd() const
{
    if (!empty())
        throw UsageError("unexpected argument '" + m_words[m_pos] + "'");
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

CtRef parseCT(const std::string& text)
{
    CtRef ct;
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

Runner parseCommand(const std::vector<std::string>& words)
{
    if (words.empty())
        throw UsageError("no command given");
    const auto& table = commandTable();
    auto it = table.find(words[0]);
    if (it == table.end())
        throw UsageError("unknown command '" + words[0] + "'");
    Args args(std::vector<std::string>(words.begin() + 1, words.end()));
    return it->second(args);
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
