#include "NameLookup.h"

#include <netdb.h>
#include <netinet/in.h>

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>

#include "BundleThread.h"

namespace dmf::socket {

namespace {
/// One question to the system's resolver, shared by those who ask the same while it is under way.
struct Lookup {
    std::string name;
    std::mutex lock;
    std::condition_variable answered;
    bool isAnswered = false;        // guarded by lock
    std::vector<Address> addresses; // guarded by lock; without a port
};

struct Lookups {
    std::mutex lock;
    std::map<std::string, std::shared_ptr<Lookup>> underWay; // guarded by lock
};
Lookups& lookups()
{
    static auto* const shared = new Lookups; // a lookup may outlast everything else
    return *shared;
}

std::vector<Address> resolve(const std::string& name, int flags)
{
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = flags;
    addrinfo* list = nullptr;
    std::vector<Address> addresses;
    if (::getaddrinfo(name.c_str(), nullptr, &hints, &list) != 0)
        return addresses;
    for (const auto* entry = list; entry; entry = entry->ai_next) {
        if (entry->ai_addrlen > sizeof(sockaddr_storage))
            continue;
        Address address;
        std::memcpy(&address.storage, entry->ai_addr, entry->ai_addrlen);
        address.length = entry->ai_addrlen;
        addresses.push_back(address);
    }
    ::freeaddrinfo(list);
    return addresses;
}

void setPort(std::vector<Address>& addresses, std::uint16_t port)
{
    for (auto& address : addresses) {
        if (address.family() == AF_INET6)
            reinterpret_cast<sockaddr_in6&>(address.storage).sin6_port = htons(port);
        else
            reinterpret_cast<sockaddr_in&>(address.storage).sin_port = htons(port);
    }
}

void answer(const std::shared_ptr<Lookup>& lookup, std::vector<Address> addresses)
{
    {
        std::lock_guard guard(lookups().lock);
        lookups().underWay.erase(lookup->name);
    }
    std::lock_guard guard(lookup->lock);
    lookup->addresses = std::move(addresses);
    lookup->isAnswered = true;
    lookup->answered.notify_all();
}

std::shared_ptr<Lookup> lookupOf(const std::string& name)
{
    std::lock_guard guard(lookups().lock);
    auto& lookup = lookups().underWay[name];
    if (!lookup) {
        lookup = std::make_shared<Lookup>();
        lookup->name = name;
        if (!startThread("dmf-lookup", [lookup] { answer(lookup, resolve(lookup->name, 0)); })) {
            lookups().underWay.erase(name);
            return nullptr;
        }
    }
    return lookup;
}
} // namespace

std::vector<Address> numericAddresses(const std::string& text, std::uint16_t port)
{
    auto addresses = resolve(text, AI_NUMERICHOST);
    setPort(addresses, port);
    return addresses;
}

Outcome lookUpName(const std::string& name, std::uint16_t port, Clock::time_point deadline,
                   const CancelQuestion& isCancelled, std::vector<Address>& found)
{
    found = numericAddresses(name, port);
    if (!found.empty())
        return Outcome::done;
    const auto lookup = lookupOf(name);
    if (!lookup)
        return Outcome::refused;
    std::unique_lock held(lookup->lock);
    while (!lookup->isAnswered) {
        const auto now = Clock::now();
        if (now >= deadline)
            return Outcome::timedOut;
        lookup->answered.wait_until(held, std::min(deadline, now + kCancelInterval));
        if (lookup->isAnswered)
            break;
        held.unlock(); // never ask a client with a lock held
        const bool isUnwanted = isCancelled && isCancelled();
        held.lock();
        if (isUnwanted)
            return Outcome::cancelled;
    }
    found = lookup->addresses;
    setPort(found, port);
    return found.empty() ? Outcome::refused : Outcome::done;
}

} // namespace dmf::socket
