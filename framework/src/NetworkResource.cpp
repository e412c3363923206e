#include "KQC/NetworkResource.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <memory>

namespace KQC {

KQCNetworkResource::KQCNetworkResource(const std::string& text) : m_text(text)
{
    const std::string bare = text.substr(0, text.find('/'));
    KQCIPAddress address;
    if (!bare.empty() && address.fromString(bare) == 0) {
        m_addresses.push_back(address);
        resolveAddress(bare);
    } else if (isHostName(text)) {
        resolveName();
    }
}

bool KQCNetworkResource::isHostName(const std::string& text)
{
    if (text.empty() || text.size() > 253)
        return false;
    size_t label = 0;
    for (char c : text) {
        if (c == '.') {
            if (label == 0)
                return false;
            label = 0;
            continue;
        }
        const bool allowed = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-';
        if (!allowed || ++label > 63)
            return false;
    }
    return text.front() != '-';
}

void KQCNetworkResource::resolveAddress(const std::string& bare)
{
    sockaddr_storage storage{};
    socklen_t length = 0;
    auto* v4 = reinterpret_cast<sockaddr_in*>(&storage);
    auto* v6 = reinterpret_cast<sockaddr_in6*>(&storage);
    if (::inet_pton(AF_INET, bare.c_str(), &v4->sin_addr) == 1) {
        storage.ss_family = AF_INET;
        length = sizeof(sockaddr_in);
    } else if (::inet_pton(AF_INET6, bare.c_str(), &v6->sin6_addr) == 1) {
        storage.ss_family = AF_INET6;
        length = sizeof(sockaddr_in6);
    } else {
        return;
    }
    char name[NI_MAXHOST] = "";
    // NI_NAMEREQD: an address the resolver cannot name has no name, rather
    // than its own text back.
    if (::getnameinfo(reinterpret_cast<sockaddr*>(&storage), length, name, sizeof name, nullptr, 0,
                      NI_NAMEREQD) == 0)
        m_name = name;
}

void KQCNetworkResource::resolveName()
{
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_CANONNAME;
    addrinfo* found = nullptr;
    if (::getaddrinfo(m_text.c_str(), nullptr, &hints, &found) != 0 || !found)
        return;
    std::unique_ptr<addrinfo, void (*)(addrinfo*)> owner(found, ::freeaddrinfo);
    m_name = found->ai_canonname && *found->ai_canonname ? found->ai_canonname : m_text;
    for (const addrinfo* it = found; it; it = it->ai_next) {
        char text[INET6_ADDRSTRLEN] = "";
        const void* bytes = it->ai_family == AF_INET
                                ? static_cast<const void*>(&reinterpret_cast<const sockaddr_in*>(it->ai_addr)->sin_addr)
                                : static_cast<const void*>(&reinterpret_cast<const sockaddr_in6*>(it->ai_addr)->sin6_addr);
        if ((it->ai_family != AF_INET && it->ai_family != AF_INET6) || !::inet_ntop(it->ai_family, bytes, text, sizeof text))
            continue;
        KQCIPAddress address;
        if (address.fromString(text) == 0 && std::find(m_addresses.begin(), m_addresses.end(), address) == m_addresses.end())
            m_addresses.push_back(address);
    }
}

} // namespace KQC
