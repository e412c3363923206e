#pragma once
// The framework's tag table: numeric identifiers of message elements and
// their names.
//
// Values and child objects of a message are filed under keys. A key is a
// name; a tag is a number that stands for the name the table gives it, so
// that code writes numbers and message files show names. A number the table
// does not know stands for its own decimal text.
// Thread safety: the table is constant; every function may be called from
// any thread.
#include <string>

namespace KQC {

enum KQCTag : int {
    // Well-known numbers of the agent protocol.
    TAG_VEID = 1002,              // a container's VEID (int)
    TAG_ACCOUNT_TYPE = 1026,      // vocabulary: the account type of a user parameter
    TAG_MESSAGE_PATH = 1156,      // vocabulary: where a parameter lives in a configuration message
    TAG_ENV_CONFIG = 1185,        // an environment's configuration object
    TAG_MIN_VEID = 1257,          // agent configuration: the lowest VEID to hand out
    TAG_MAX_VEID = 1258,          // agent configuration: the highest VEID to hand out
    TAG_VOC_VALUE = 1307,         // vocabulary: a parameter's value (also a UBC kernel index)
    TAG_ENV_SAMPLE = 1624,        // the node that carries a configuration sample
    TAG_SAMPLE_CONFIG = 1872,     // a sample's configuration object

    // Fields of configuration records.
    TAG_NAME = 2001,
    TAG_HOSTNAME = 2002,
    TAG_DOMAIN = 2003,
    TAG_DESCRIPTION = 2004,
    TAG_ADDRESSES = 2005,
    TAG_NAMESERVERS = 2006,
    TAG_SEARCH_DOMAINS = 2007,
    TAG_ARCHITECTURE = 2008,
    TAG_BASE_SAMPLE_ID = 2009,
    TAG_OS = 2010,
    TAG_OS_PLATFORM = 2011,
    TAG_OS_DISTRIBUTION = 2012,
    TAG_OS_VERSION = 2013,
    TAG_OS_KERNEL = 2014,
    TAG_TYPE = 2015,
    TAG_DISABLED = 2016,
    TAG_QOSES = 2017,
    TAG_QOS = 2018,
    TAG_ID = 2019,
    TAG_BARRIER = 2020,
    TAG_LIMIT = 2021,
    TAG_ITEM = 2022,
    TAG_OS_TEMPLATE = 2023,
    TAG_TEMPLATES = 2024,
    TAG_TEMPLATE = 2025,
    TAG_VERSION = 2026,
    TAG_OFFLINE_MANAGEMENT = 2027,
    TAG_ON_BOOT = 2028,
    TAG_VE_ROOT = 2029,
    TAG_VE_PRIVATE = 2030,
    TAG_DISTRIBUTION = 2031,
    TAG_OFFLINE_SERVICES = 2032,
    TAG_SERVER_ROLES = 2033,
    TAG_CAPABILITIES = 2034,
    TAG_CAPABILITY = 2035,
    TAG_ENABLED = 2036,
    TAG_SLM_MODE = 2037,
    TAG_IPTABLES = 2038,
    TAG_WINS_SERVERS = 2039,
    TAG_TS_LICENSE_SERVERS = 2040,
    TAG_TS_MODE = 2041,
    TAG_RATES = 2042,
    TAG_RATE = 2043,
    TAG_INTERFACE = 2044,
    TAG_RATE_CLASS = 2045,
    TAG_RATE_VALUE = 2046,
    TAG_RATE_BOUND = 2047,
    TAG_ALLOW_REBOOT = 2048,
    TAG_NET_VETHS = 2049,
    TAG_NET_VETH = 2050,
    TAG_MAC = 2051,
    TAG_DHCP = 2052,
    TAG_DHCP6 = 2053,
    TAG_NETWORK_ID = 2054,
    TAG_GATEWAY = 2055,
    TAG_GATEWAY6 = 2056,
    TAG_HOST_ROUTED = 2057,
    TAG_STATUS = 2058,
    TAG_UUID = 2059,
    TAG_ORIGIN_SAMPLE = 2060,
    TAG_VE_TYPE = 2061,

    // The agent's own configuration.
    TAG_LOCAL_EID = 2101,
    TAG_MASTER_EID = 2102,
    TAG_MAPPINGS = 2103,
    TAG_MAPPING = 2104,
    TAG_EID = 2105,
    TAG_CONNECTION = 2106,

    // Parameters of plug-in classes.
    TAG_PARAMS_TYPE = 2201,       // the serialised type name of a parameter record
    TAG_PARAMS_NAMESPACE = 2202,  // the namespace of that type name
    TAG_ARGUMENT = 2203,          // one word of an external program's argument vector
};

// The name of a tag: the table's name, or the decimal number when the table
// does not know it.
std::string tagKey(int tag);

// The tag of a name: 0 with the number when `name` is a table name or a
// decimal number, -1 otherwise (no message set: a miss is not a failure).
int tagFromName(const std::string& name, int& tag);

// A path component as a key: decimal numbers become the tag's name, names
// stay as they are. "1185" and "envConfig" are the same key.
std::string canonicalKey(const std::string& component);

} // namespace KQC
