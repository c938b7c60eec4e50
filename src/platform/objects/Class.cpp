#include <dmf/platform/Class.h>

#include <algorithm>
#include <exception>
#include <map>
#include <mutex>
#include <utility>

#include "platform/objects/Modules.h"

namespace dmf {

Class::Class(std::string name, const void* anchor) : name_(std::move(name)), anchor_(anchor) {}

std::vector<const Protocol*> Class::protocols() const
{
    std::vector<const Protocol*> protocols;
    protocols.reserve(entries_.size());
    for (const Entry& entry : entries_)
        protocols.push_back(entry.protocol);
    return protocols;
}

bool Class::conformsTo(const Protocol& protocol) const noexcept
{
    return std::ranges::any_of(entries_, [&](const Entry& entry) { return entry.protocol->conformsTo(protocol); });
}

void Class::add(const Protocol& protocol, std::any factory)
{
    entries_.push_back({&protocol, std::move(factory)});
}

const std::any* Class::find(const Protocol& protocol) const noexcept
{
    const auto entry =
        std::ranges::find(entries_, protocol.name(), [](const Entry& it) { return it.protocol->name(); });
    return entry == entries_.end() ? nullptr : &entry->factory;
}

struct ClassRegistry::State {
    struct Registered {
        std::shared_ptr<const Class> object;
        const void* module;
    };
    mutable std::mutex lock;
    std::map<std::string, Registered, std::less<>> classes; // guarded by lock
};

ClassRegistry::ClassRegistry() : state_(new State) {}

ClassRegistry& ClassRegistry::shared()
{
    static ClassRegistry* const registry = new ClassRegistry;
    return *registry;
}

bool ClassRegistry::add(std::shared_ptr<const Class> added)
{
    if (!added)
        return false;
    // Asked before the lock is taken: the loader has a lock of its own, under which classes announce themselves.
    const void* module = internal::moduleOf(added->anchor()).base;
    std::lock_guard guard(state_->lock);
    const std::string& name = added->name();
    return state_->classes.try_emplace(name, State::Registered{added, module}).second;
}

void ClassRegistry::remove(const std::shared_ptr<const Class>& removed)
{
    if (!removed)
        return;
    std::lock_guard guard(state_->lock);
    const auto entry = state_->classes.find(removed->name());
    if (entry != state_->classes.end() && entry->second.object == removed)
        state_->classes.erase(entry);
}

std::shared_ptr<const Class> ClassRegistry::classNamed(std::string_view name) const
{
    std::lock_guard guard(state_->lock);
    const auto entry = state_->classes.find(name);
    return entry == state_->classes.end() ? nullptr : entry->second.object;
}

std::vector<std::shared_ptr<const Class>> ClassRegistry::classesInModuleOf(const void* address) const
{
    std::vector<std::shared_ptr<const Class>> classes;
    const void* module = internal::moduleOf(address).base;
    if (!module)
        return classes;
    std::lock_guard guard(state_->lock);
    for (const auto& [name, registered] : state_->classes) {
        if (registered.module == module)
            classes.push_back(registered.object);
    }
    return classes;
}

ClassRegistration::ClassRegistration(const char* name, const void* anchor, void (*describe)(Class&))
{
    // It runs inside the loader, through which nothing may be thrown: a class that cannot be described does not exist,
    // and the bundle that brought it is refused.
    const auto note = [name, anchor](const char* what) noexcept {
        try {
            internal::noteModuleFault(internal::moduleOf(anchor).base,
                                      "its class " + std::string(name) + " cannot be announced: " + what);
        } catch (...) { // no memory left to say that there is none
        }
    };
    try {
        auto described = std::make_shared<Class>(name, anchor);
        describe(*described);
        ClassRegistry::shared().add(std::move(described));
    } catch (const std::exception& error) {
        note(error.what());
    } catch (...) {
        note("something was thrown that is no std::exception");
    }
}

} // namespace dmf
