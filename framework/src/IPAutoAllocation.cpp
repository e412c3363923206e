#include "KQC/IPAutoAllocation.h"

#include "KQC/Env.h"
#include "KQC/EnvConfig.h"
#include "KQC/EnvM.h"
#include "KQC/Error.h"
#include "KQC/Files.h"
#include "KQC/Functionality.h"
#include "KQC/HostPaths.h"

#include <cerrno>
#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <sstream>
#include <unistd.h>

namespace KQC {
namespace IPAutoAllocation {
namespace {

// A pid that names no process ends its leases; EPERM still means alive.
bool processAlive(long pid)
{
    if (pid <= 0 || pid > 0x7fffffffL)
        return false;
    return ::kill(static_cast<pid_t>(pid), 0) == 0 || errno == EPERM;
}

bool isUnspecified(const std::string& text) { return text == "0.0.0.0" || text == "::"; }

bool absent(const std::string& path)
{
    struct stat st;
    return ::lstat(path.c_str(), &st) != 0 && errno == ENOENT;
}

} // namespace

bool isAutomatic(const KQCIPAddress& address) { return address.isValid() && isUnspecified(address.address()); }

Director::Director(const KQCAccessProvider& access) : m_access(access) {}

Director::~Director() = default;  // closing the lock file releases the lock

std::string Director::poolPath() { return KQCInstanceFolders::etc().leaf("ip-pool.conf"); }
std::string Director::lockPath() { return KQCInstanceFolders::base().leaf("ip-pool.lock"); }
std::string Director::leasesPath() { return KQCInstanceFolders::base().leaf("ip-pool.leases"); }

int Director::construct(BuilderBase& builder)
{
    for (size_t i = 0; i < builder.adapterCount(); ++i)
        if (int rc = builder.buildAdapter(i, *this)) {
            releaseMine();
            return rc;
        }
    // The leases now speak for the addresses until the containers' own
    // configurations do.
    m_lock.reset();
    m_prepared = false;
    m_mine.clear();
    return KQC_OK;
}

// A creation that fails gives its addresses back at once rather than
// holding them until its lease runs out.
void Director::releaseMine()
{
    if (m_mine.empty() || !m_lock.isValid())
        return;
    std::vector<Lease> kept;
    for (const Lease& lease : m_leases)
        if (!m_mine.count(lease.address))
            kept.push_back(lease);
    m_leases.swap(kept);
    for (const std::string& address : m_mine)
        m_used.erase(address);
    m_mine.clear();
    const std::string why = getErrorMessage();
    (void)saveLeases();
    setErrorMessage("%s", why.c_str());
}

int Director::allocate(KQCIPAddress::Family family, const std::string& adapter, KQCIPAddress& out)
{
    if (int rc = prepare())
        return rc;
    KQCIPAddress chosen;
    if (int rc = m_pool.pick(family, m_used, chosen)) {
        std::string why = getErrorMessage();
        setErrorMessage("can't allocate an address for adapter '%s': %s", adapter.c_str(), why.c_str());
        return rc;
    }
    m_used.insert(chosen.address());
    m_mine.insert(chosen.address());
    m_leases.push_back(Lease{chosen.address(), static_cast<long>(::getpid()),
                             static_cast<long>(::time(nullptr)) + kLeaseSeconds});
    if (saveLeases() != 0) {
        std::string why = getErrorMessage();
        setErrorMessage("can't record the address lease: %s", why.c_str());
        return KQC_ERR_IP_POOL_STATE;
    }
    if (m_access)
        m_access->progress("Adapter " + adapter + " gets address " + chosen.toStringWithNetwork());
    out = chosen;
    return KQC_OK;
}

// The pool is read and the used addresses learnt under the lock, so that
// what this director sees stays true until it has leased its choices.
int Director::prepare()
{
    if (m_prepared)
        return KQC_OK;
    if (int rc = loadPool())
        return rc;
    const std::string path = lockPath();
    KQCHandle lock(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!lock.isValid()) {
        setErrorMessage("can't open the address pool lock %s: %m", path.c_str());
        return KQC_ERR_IP_POOL_STATE;
    }
    if (lock.lock(true) != 0) {
        std::string why = getErrorMessage();
        setErrorMessage("can't lock the address pool: %s", why.c_str());
        return KQC_ERR_IP_POOL_STATE;
    }
    m_lock = std::move(lock);
    m_used.clear();
    if (int rc = loadLeases())
        return rc;
    if (int rc = collectListed())
        return rc;
    m_prepared = true;
    return KQC_OK;
}

int Director::loadPool()
{
    const std::string path = poolPath();
    if (absent(path)) {
        setErrorMessage("no address pool is configured: %s does not exist", path.c_str());
        return KQC_ERR_IP_POOL_MISSING;
    }
    std::string text;
    if (file2str(path, text) != 0) {
        std::string why = getErrorMessage();
        setErrorMessage("can't read the address pool: %s", why.c_str());
        return KQC_ERR_IP_POOL_MALFORMED;
    }
    if (int rc = m_pool.parse(text)) {
        std::string why = getErrorMessage();
        setErrorMessage("malformed address pool %s: %s", path.c_str(), why.c_str());
        return rc;
    }
    if (m_pool.empty()) {
        setErrorMessage("the address pool %s has no ranges", path.c_str());
        return KQC_ERR_IP_POOL_MISSING;
    }
    return KQC_OK;
}

// Every environment type's manager lists its environments; an address that
// cannot be told is a reason to refuse, never to guess.
int Director::collectListed()
{
    KQCFunctionalMultiplexer<boost::shared_ptr<KQCEnvM>>& managers =
        KQCFunctionality<KQCLibFunctionality>::kit().getEnvMMultiplexer();
    for (const std::string& key : managers.keys()) {
        boost::shared_ptr<KQCEnvM> manager;
        KQCEnvVector envs;
        const unsigned int kAddresses = 8;
        if (managers.create(key, KQCAccessProvider(), manager) != 0
            || manager->getInfo(KQCEIDSet(), envs, kAddresses) != 0) {
            std::string why = getErrorMessage();
            setErrorMessage("can't list the addresses in use: %s", why.c_str());
            return KQC_ERR_IP_POOL_STATE;
        }
        for (const boost::shared_ptr<KQCEnv>& env : envs) {
            if (!env || !env->getConfig())
                continue;
            KQCOptionalProperty<KQCIPAddressList> addresses;
            env->getConfig()->getAddresses(addresses);
            for (const KQCIPAddress& address : addresses.get())
                m_used.insert(address.address());
        }
    }
    return KQC_OK;
}

// Lines that do not read are dropped: the file is ours, and a lost lease
// only matters while a creation is half done.
int Director::loadLeases()
{
    m_leases.clear();
    if (absent(leasesPath()))
        return KQC_OK;
    std::string text;
    if (file2str(leasesPath(), text) != 0) {
        std::string why = getErrorMessage();
        setErrorMessage("can't read the address leases: %s", why.c_str());
        return KQC_ERR_IP_POOL_STATE;
    }
    const long now = static_cast<long>(::time(nullptr));
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        std::istringstream words(line);
        Lease lease;
        KQCIPAddress address;
        if (!(words >> lease.address >> lease.pid >> lease.expiry) || address.fromString(lease.address) != 0)
            continue;
        if (lease.expiry <= now || lease.expiry > now + kLeaseSeconds || !processAlive(lease.pid))
            continue;
        lease.address = address.address();
        m_used.insert(lease.address);
        m_leases.push_back(lease);
    }
    return KQC_OK;
}

int Director::saveLeases() const
{
    std::string text;
    for (const Lease& lease : m_leases)
        text += lease.address + " " + std::to_string(lease.pid) + " " + std::to_string(lease.expiry) + "\n";
    return writeFileAtomic(leasesPath(), text, 0600);
}

} // namespace IPAutoAllocation
} // namespace KQC
