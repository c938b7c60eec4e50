#pragma once

#include <any>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include <dmf/platform/Export.h>
#include <dmf/platform/Protocol.h>

namespace dmf {

/// A class that can be found by its name: which interfaces it implements, and how an object of it is made for each.
///
/// An interface `I` that plug-ins implement declares `using Factory = std::shared_ptr<I>(arguments...)`, the form of
/// its initialiser; an empty result means that the object could not be made. Immutable once registered; thread-safe.
class DMF_EXPORT Class {
public:
    /// `anchor` is any address inside the shared object that holds the class; it tells the bundle that the class
    /// came with.
    Class(std::string name, const void* anchor);

    /// States that the class implements `Interface` and how to make an object of it.
    template <class Interface>
    Class& implements(std::function<typename Interface::Factory> factory)
    {
        add(Interface::protocol(), std::move(factory));
        return *this;
    }

    [[nodiscard]] const std::string& name() const noexcept { return name_; }
    [[nodiscard]] const void* anchor() const noexcept { return anchor_; }
    /// The interfaces stated, in the order in which they were.
    [[nodiscard]] std::vector<const Protocol*> protocols() const;
    /// Whether the class implements the interface, itself or through one that extends it.
    [[nodiscard]] bool conformsTo(const Protocol& protocol) const noexcept;

    /// Makes an object of the class through `Interface`: what the interface's factory gives, a shared pointer; empty
    /// when the class does not state the interface or its factory refuses.
    template <class Interface, class... Arguments>
    [[nodiscard]] auto make(Arguments&&... arguments) const
        -> std::invoke_result_t<const std::function<typename Interface::Factory>&, Arguments...>
    {
        const auto* factory = std::any_cast<std::function<typename Interface::Factory>>(find(Interface::protocol()));
        if (!factory || !*factory)
            return nullptr;
        return (*factory)(std::forward<Arguments>(arguments)...);
    }

private:
    void add(const Protocol& protocol, std::any factory);
    [[nodiscard]] const std::any* find(const Protocol& protocol) const noexcept;

    struct Entry {
        const Protocol* protocol;
        std::any factory;
    };
    std::string name_;
    const void* anchor_;
    std::vector<Entry> entries_;
};

/// The process's classes by name. Classes of a bundle announce themselves as their object is loaded
/// (DMF_REGISTER_CLASS); a program may add its own. Thread-safe.
class DMF_EXPORT ClassRegistry {
public:
    [[nodiscard]] static ClassRegistry& shared();

    /// Adds a class; a class of the same name that is there already stays, and the new one is ignored (false).
    bool add(std::shared_ptr<const Class> added);
    /// Removes the class, if it is the very object registered under its name. For programs that add their own.
    void remove(const std::shared_ptr<const Class>& removed);
    [[nodiscard]] std::shared_ptr<const Class> classNamed(std::string_view name) const;
    /// The classes whose anchor lies in the shared object that holds `address`, sorted by name.
    [[nodiscard]] std::vector<std::shared_ptr<const Class>> classesInModuleOf(const void* address) const;

private:
    ClassRegistry();
    ~ClassRegistry() = delete; // lives as long as the process
    struct State;
    State* state_;
};

/// Registers a class while its shared object is loaded; used by DMF_REGISTER_CLASS. What `describe` throws, of any
/// type, ends here: the class does not exist, and its bundle is refused with the reason (Bundle::load).
struct DMF_EXPORT ClassRegistration {
    ClassRegistration(const char* name, const void* anchor, void (*describe)(Class&));
};

/// Announces the class `name` as its bundle is loaded. What follows states its interfaces:
///
///     DMF_REGISTER_CLASS(SocketDevice)
///     {
///         described.implements<IDMDevice>(&SocketDevice::initFromInfo);
///     }
///
/// An exception out of what follows is kept in. One out of any other static initialiser of a plug-in ends the program.
#define DMF_REGISTER_CLASS(name)                                                                                       \
    static void dmfDescribeClass_##name(::dmf::Class& described);                                                      \
    static const ::dmf::ClassRegistration dmfClassRegistration_##name(                                                 \
        #name, reinterpret_cast<const void*>(&dmfDescribeClass_##name), &dmfDescribeClass_##name);                     \
    static void dmfDescribeClass_##name(::dmf::Class& described)

} // namespace dmf
