#pragma once
// The configuration parsers of shell-style files (syntax: ShellSyntax.h).
//
// Each parser offers getConfig(stream, T&) and putConfig(const T&, stream,
// old, keepOld), returning 0 on success and -1 with the error message set.
// putConfig without keepOld (or without an old stream) writes only what the
// record specifies; with keepOld it rewrites the old text, keeping its
// comments, order and unknown keys, replacing the values of the keys it sets
// in place and appending new keys at the end; keys the record does not set
// stay as the old file has them.
//
// Container configuration keys (KQSEnvConfigBashParser), in writing order:
//   ONBOOT, DISABLED, OFFLINE_MANAGEMENT    "yes" / "no"
//   VE_ROOT, VE_PRIVATE                      path templates ("$VEID" kept)
//   OSTEMPLATE                               "name" or "name/version"
//   TEMPLATES                                blank-separated templates
//   ORIGIN_SAMPLE, UUID                      text
//   VE_TYPE                                  number (4, 5, 6: repair kinds)
//   ARCH                                     architecture
//   DISTRIBUTION                             "name" or "name/version"
//   NAME, DESCRIPTION, HOSTNAME              text
//   IP_ADDRESS                               blank-separated "ADDR/PREFIX" or "ADDR"
//   NAMESERVER, SEARCHDOMAIN                 blank-separated
//   NETIF    adapters separated by ";", each a ","-separated list of
//            key=value: name, mac, ip (repeatable), dhcp, dhcp6 (yes/no),
//            network, gw, gw6, ns (repeatable), host_routed (yes/no)
// Every container has the default host-routed adapter "venet0", whose
// addresses IP_ADDRESS holds. Reading always gives it among the adapters,
// with the addresses of IP_ADDRESS (the configuration's address list keeps
// them too); an adapter the file names venet0 becomes it, else it comes
// last. Writing puts its addresses into IP_ADDRESS (in preference to the
// address list) and leaves it out of NETIF.
//   CAPABILITY                               blank-separated "ID:on" / "ID:off"
//   OFFLINE_SERVICE, IPTABLES                blank-separated
//   SLMMODE                                  text
//   RATE                                     blank-separated "IFACE:CLASS:RATE"
//   RATEBOUND, ALLOW_REBOOT                  "yes" / "no"
//   and each QoS limit of the vocabulary's "qos" and "ubc" categories under
//   its upper-case identifier: DISKSPACE="1048576:1153024" (barrier:limit;
//   one number stands for both).
// Reading also fills what the vocabulary says of the platform: the OS
// platform, and the architecture when the file has no ARCH.
//
// Host settings (KQSKQConfigBashParser): every key of the file into
// KQSVtSettings by lower-case name (LOCKDIR, DUMPDIR, TEMPLATE, VE_ROOT,
// VE_PRIVATE, ...); written back in upper case. The container defaults in
// the same file are read with the container parser.
//
// Thread safety: parsers hold only constant data once made; one instance
// may be used from several threads at once.
#include "KQC/Vocabulary.h"
#include "KQS/EnvConfig.h"
#include "KQS/VtSettings.h"

#include <boost/shared_ptr.hpp>

#include <istream>
#include <map>
#include <ostream>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace KQS {

typedef std::vector<std::pair<std::string, std::string>> KQSConfigDiff;

class KQSEnvConfigBashParser {
public:
    // A parser for the platform the vocabularies describe. Never empty.
    static boost::shared_ptr<KQSEnvConfigBashParser> getInstance(const KQC::KQCVocMap& vocabularies);

    // Replaces `config` with what the text holds.
    int getConfig(std::istream& input, KQSEnvConfig& config) const;
    int putConfig(const KQSEnvConfig& config, std::ostream& output, std::istream* old, bool keepOld) const;
    // The keys `now` specifies with another text than `old` has, as (key,
    // text of the new value) in writing order. Always 0.
    int diffConfig(const KQSEnvConfig& old, const KQSEnvConfig& now, KQSConfigDiff& changes) const;

    // The QoS identifiers the parser reads (lower case, vocabulary order).
    const std::vector<std::string>& getQoSIds() const { return m_qosIds; }

private:
    explicit KQSEnvConfigBashParser(const KQC::KQCVocMap& vocabularies);
    // The file's keys and texts for the configuration, in writing order.
    KQSConfigDiff toPairs(const KQSEnvConfig& config) const;

    std::vector<std::string> m_qosIds;
    // The key of each identifier in a file (upper case) -> its index.
    std::unordered_map<std::string, size_t> m_qosSlots;
    std::string m_platform;
    std::string m_architecture;
};

class KQSKQConfigBashParser {
public:
    static boost::shared_ptr<KQSKQConfigBashParser> getInstance();

    int getConfig(std::istream& input, KQSVtSettings& settings) const;
    int putConfig(const KQSVtSettings& settings, std::ostream& output, std::istream* old, bool keepOld) const;
};

class KQSRawConfigBashParser {
public:
    static boost::shared_ptr<KQSRawConfigBashParser> getInstance();

    int getConfig(std::istream& input, std::map<std::string, std::string>& values) const;
    int putConfig(const std::map<std::string, std::string>& values, std::ostream& output, std::istream* old,
                  bool keepOld) const;
};

} // namespace KQS
