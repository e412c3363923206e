#pragma once
// Automatic addresses for new containers, from the host's address pool.
//
// An adapter asks for an automatic address by carrying the unspecified
// address of a family in its list: "0.0.0.0" asks for one IPv4 address,
// "::" for one IPv6 address (the prefix given with it is ignored; the pool's
// range gives it). The director hands out addresses that no environment of
// the host uses and that no other creation holds right now.
//
// Where things are (under the host root):
//   etc/kqagent/ip-pool.conf        the pool, in the text form of KQC/IPPool.h
//   var/lib/kqagent/ip-pool.lock    flock(2) serialising the choice
//   var/lib/kqagent/ip-pool.leases  addresses handed out but perhaps not yet
//                                   written into a container's configuration:
//                                   "ADDRESS PID EXPIRY" lines; a lease ends
//                                   when its process is gone or it expires
//                                   (kLeaseSeconds), whichever comes first
// The used addresses are the addresses that the environment managers of
// every registered environment type list (asked as the agent itself, so a
// client's rights never hide an address), plus the live leases.
//
// Ownership and threads: a Director belongs to one request on one thread.
// It takes the lock at its first allocation and holds it until construct()
// returns or the director is destroyed; two directors, in one process or
// in two, never hand out the same address.
// Failure: KQC_ERR_IP_POOL_MISSING, _MALFORMED, _EXHAUSTED or _STATE with
// the error message set.
#include "KQC/Access.h"
#include "KQC/Handle.h"
#include "KQC/IPPool.h"
#include "KQC/Lock.h"

#include <memory>
#include <set>
#include <string>
#include <vector>

namespace KQC {
namespace IPAutoAllocation {

class Director;

// Whether the address asks for an automatic one.
bool isAutomatic(const KQCIPAddress& address);

// The adapters a director fills, as the management library sees them.
class BuilderBase {
public:
    virtual ~BuilderBase() = default;
    virtual size_t adapterCount() const = 0;
    // Gives adapter `index` its automatic addresses, each from
    // director.allocate(). 0, or the first failure.
    virtual int buildAdapter(size_t index, Director& director) = 0;
};

class Director : noncopyable {
public:
    static const long kLeaseSeconds = 600;

    // `access` is the requesting client's: it hears which address each
    // adapter got.
    explicit Director(const KQCAccessProvider& access);
    ~Director();

    // Has the builder fill each adapter in turn; the first non-zero result
    // stops it, gives back the addresses leased so far and is returned.
    [[nodiscard]] int construct(BuilderBase& builder);
    // One free address of the family for the adapter, leased to this
    // process at once.
    [[nodiscard]] int allocate(KQCIPAddress::Family family, const std::string& adapter, KQCIPAddress& out);

    static std::string poolPath();
    static std::string lockPath();
    static std::string leasesPath();

private:
    [[nodiscard]] int prepare();
    [[nodiscard]] int loadPool();
    [[nodiscard]] int collectListed();
    [[nodiscard]] int loadLeases();
    [[nodiscard]] int saveLeases() const;
    void releaseMine();

    struct Lease {
        std::string address;
        long pid;
        long expiry;
    };

    KQCAccessProvider m_access;
    bool m_prepared = false;
    KQCHandle m_lock;
    KQCIPPool m_pool;
    std::set<std::string> m_used;
    std::vector<Lease> m_leases;
    std::set<std::string> m_mine;  // leased by this director's construct()
};

} // namespace IPAutoAllocation
} // namespace KQC
