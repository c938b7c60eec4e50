#include "platform/objects/BundleObject.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "platform/files/Files.h"
#include "platform/host/Trust.h"
#include "platform/objects/SharedObject.h"

namespace dmf::internal {
namespace {

class HeldDescriptor {
public:
    explicit HeldDescriptor(int value) : value_(value) {}
    ~HeldDescriptor()
    {
        if (value_ >= 0)
            ::close(value_);
    }
    HeldDescriptor(const HeldDescriptor&) = delete;
    HeldDescriptor& operator=(const HeldDescriptor&) = delete;

    [[nodiscard]] int get() const { return value_; }
    int keep() { return std::exchange(value_, -1); }

private:
    int value_;
};

std::string objectErrorText(int code)
{
    return std::generic_category().message(code);
}

// A sticky folder is good enough above it only: whoever may add entries to the one that holds bundles may add bundles,
// or links that make bundles of what was never meant to be one.
std::string reasonAgainstHolder(const std::string& path)
{
    auto reason = reasonNotToTrustWayTo(path, ownFolder());
    return reason.empty() ? reasonNotToTrust(folderOf(path)) : reason;
}

/// The object, every link resolved, once the folders between the bundle's and it are trusted.
std::string trustedObject(const std::string& folder, const std::string& name, std::string& refusal)
{
    const auto object = realPath(folder + "/" + name);
    if (!object) {
        refusal = "its object " + name + " cannot be found: " + objectErrorText(errno);
        return {};
    }
    if (!object->starts_with(folder + "/")) {
        refusal = "its object " + name + " lies outside its folder";
        return {};
    }
    for (auto slash = object->find('/', folder.size() + 1); slash != std::string::npos;
         slash = object->find('/', slash + 1)) {
        refusal = reasonNotToTrust(object->substr(0, slash));
        if (!refusal.empty())
            return {};
    }
    return *object;
}

/// Why the file of that name in the open folder must not be loaded. Opened without waiting: a named pipe would hold the
/// caller for ever.
std::string reasonAgainstObject(int folder, const std::string& name, const std::string& object)
{
    const HeldDescriptor file(
        ::openat(folder, name.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
    if (file.get() < 0)
        return object + ": " + objectErrorText(errno);
    if (auto reason = reasonNotToTrust(file.get(), object); !reason.empty())
        return reason;
    const std::string fault = faultOfSharedObject(file.get());
    return fault.empty() ? fault : object + " " + fault;
}

} // namespace

std::string reasonNotToTrustBundle(const std::string& path)
{
    if (auto reason = reasonAgainstHolder(path); !reason.empty())
        return reason;
    const auto real = realPath(path);
    if (!real)
        return path + ": " + objectErrorText(errno);
    if (auto reason = *real == path ? std::string() : reasonAgainstHolder(*real); !reason.empty())
        return reason;
    return reasonNotToTrust(*real);
}

Module loadBundleObject(const std::string& path, const std::string& name, std::string& refusal)
{
    const auto real = realPath(path);
    if (!real) {
        refusal = path + ": " + objectErrorText(errno);
        return {};
    }
    const std::string object = trustedObject(*real, name, refusal);
    if (object.empty())
        return {};
    const std::string file = object.substr(object.rfind('/') + 1);
    HeldDescriptor folder(::open(folderOf(object).c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    refusal =
        folder.get() < 0 ? object + ": " + objectErrorText(errno) : reasonAgainstObject(folder.get(), file, object);
    if (!refusal.empty())
        return {};
    // By way of the open folder, so that no path is looked up anew after the tests. The folder and not the file, so
    // that
    // "$ORIGIN" in the object finds libraries which the bundle brings along, and so that the name in debuggers ends in
    // the file's. Without /proc the path has to do: only those who are trusted can change what it leads to.
    std::string opened = "/proc/self/fd/" + std::to_string(folder.get()) + "/" + file;
    if (::access(opened.c_str(), F_OK) != 0)
        opened = object;
    const Module module = loadModule(opened, path, refusal);
    // The loader tells objects apart by their names, and "$ORIGIN" may be looked up at any time: the number stays
    // taken.
    if (module.base)
        folder.keep();
    return module;
}

} // namespace dmf::internal
