#include <dmf/platform/Bundle.h>

#include <sys/stat.h>

#include <dmf/platform/PropertyList.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <mutex>
#include <system_error>
#include <utility>

#include "platform/files/Files.h"
#include "platform/host/Host.h"
#include "platform/host/Trust.h"
#include "platform/objects/Modules.h"

namespace dmf {
namespace {

using internal::Host;
using internal::Module;

constexpr std::string_view kEnding = ".bundle";
constexpr std::size_t kMaximumDescriptionSize = 1024 * 1024;

/// What changes when a file does. The time of the last status change is among it, since nobody can set that one back.
struct FileSignature {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    timespec modified{};
    timespec changed{};

    FileSignature() = default;
    explicit FileSignature(const struct stat& status)
        : device(status.st_dev), inode(status.st_ino), size(status.st_size), modified(status.st_mtim),
          changed(status.st_ctim)
    {
    }
    friend bool operator==(const FileSignature& left, const FileSignature& right)
    {
        const auto sameTime = [](const timespec& one, const timespec& other) {
            return one.tv_sec == other.tv_sec && one.tv_nsec == other.tv_nsec;
        };
        return left.device == right.device && left.inode == right.inode && left.size == right.size &&
               sameTime(left.modified, right.modified) && sameTime(left.changed, right.changed);
    }
};

/// The bundles that the process knows. They are kept for its life: a loaded one cannot go, and there are few.
struct KnownBundles {
    std::mutex lock;
    std::map<std::string, std::shared_ptr<Bundle>, std::less<>> byPath; // guarded by lock
    std::map<const void*, std::shared_ptr<Bundle>> byModule;            // guarded by lock
    std::map<std::string, std::shared_ptr<Bundle>> ofLibrary;           // by folder; guarded by lock

    static KnownBundles& shared()
    {
        static KnownBundles* const known = new KnownBundles;
        return *known;
    }
};

bool refuse(std::string* refusal, std::string reason)
{
    if (refusal)
        *refusal = std::move(reason);
    return false;
}

std::string errorText(int code)
{
    return std::generic_category().message(code);
}

/// The folder at `path` in the form under which its bundle is kept.
std::string normalized(std::string_view path)
{
    std::error_code ignored;
    std::string text = std::filesystem::absolute(path, ignored).lexically_normal().string();
    while (text.size() > 1 && text.back() == '/')
        text.pop_back();
    return text;
}

bool isBundleFolder(const std::string& path, std::string* refusal)
{
    if (path.size() <= kEnding.size() || !path.ends_with(kEnding) || path[path.size() - kEnding.size() - 1] == '/')
        return refuse(refusal, "its name does not end in .bundle");
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        const int code = errno;
        struct stat link {};
        const bool dangling = code == ENOENT && ::lstat(path.c_str(), &link) == 0;
        return refuse(refusal, dangling ? "it is a link to nothing" : errorText(code));
    }
    return S_ISDIR(status.st_mode) || refuse(refusal, "it is not a folder");
}

std::optional<std::string> realPath(const std::string& path)
{
    const std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(path.c_str(), nullptr), &std::free);
    return resolved ? std::optional<std::string>(resolved.get()) : std::nullopt;
}

/// The object that a description names, every link resolved: it must lie inside the folder, and it and each folder on
/// the way down to it must be trusted.
std::optional<std::string> trustedObject(const std::string& folder, const std::string& name, std::string* refusal)
{
    const auto object = realPath(folder + "/" + name);
    if (!object) {
        refuse(refusal, "its object " + name + " cannot be found: " + errorText(errno));
        return std::nullopt;
    }
    const auto home = realPath(folder);
    if (!home || !object->starts_with(*home + "/")) {
        refuse(refusal, "its object " + name + " lies outside its folder");
        return std::nullopt;
    }
    for (std::filesystem::path path = *object; path != *home; path = path.parent_path()) {
        if (auto reason = internal::reasonNotToTrust(path.string()); !reason.empty()) {
            refuse(refusal, std::move(reason));
            return std::nullopt;
        }
    }
    return object;
}

std::string libraryFolder()
{
    if (const auto& replaced = Host::current().libraryFolder)
        return *replaced;
    static const std::string* const folder = [] {
        const Module library = internal::moduleOf(reinterpret_cast<const void*>(&libraryFolder));
        std::error_code ignored;
        return new std::string(std::filesystem::absolute(library.file, ignored).parent_path().string());
    }();
    return *folder;
}

} // namespace

struct Bundle::Private {
    std::string path;
    bool isLibrary = false;
    std::atomic<bool> loaded{false};
    std::recursive_mutex lock; // recursive: an object may ask for its own description as it comes in
    Dictionary info;           // guarded by lock
    FileSignature signature;   // of the description that `info` was read from; guarded by lock

    [[nodiscard]] std::string descriptionPath() const { return path + "/Info.plist"; }
    bool readDescription(std::string* refusal);
    bool loadObject(std::string* refusal);
    [[nodiscard]] bool fitsTheLibrary(std::string* refusal) const;
};

// Called with the lock held.
bool Bundle::Private::readDescription(std::string* refusal)
{
    const std::string file = descriptionPath();
    struct stat status {};
    if (::lstat(file.c_str(), &status) != 0)
        return refuse(refusal, "its Info.plist cannot be found: " + errorText(errno));
    const FileSignature present(status);
    if (present == signature)
        return true;

    std::string reason;
    const auto bytes = internal::readRegularFile(file, kMaximumDescriptionSize, internal::Links::refuse, &reason);
    if (!bytes)
        return refuse(refusal, "its Info.plist cannot be read: " + reason);
    const auto value = PropertyList::parse(*bytes, &reason);
    if (!value)
        return refuse(refusal, "its Info.plist is malformed: " + reason);
    if (!value->asDictionary())
        return refuse(refusal, "its Info.plist is malformed: it holds no dictionary");
    info = *value->asDictionary();
    signature = present;
    return true;
}

bool Bundle::Private::fitsTheLibrary(std::string* refusal) const
{
    const Value& stated = info[kPlugInInterfaceNumberKey];
    if (stated.isNull())
        return refuse(refusal,
                      "it states no plug-in interface number (" + std::string(kPlugInInterfaceNumberKey) + ")");
    return stated == Value(kPlugInInterfaceNumber) ||
           refuse(refusal, "it was built for plug-in interface number " + stated.description() + ", not " +
                               std::to_string(kPlugInInterfaceNumber));
}

// Called with the lock held. Trust comes first: only then is it certain that what is read and what is loaded is what
// its owner put there.
bool Bundle::Private::loadObject(std::string* refusal)
{
    for (const std::string& file : {path, descriptionPath()}) {
        if (auto reason = internal::reasonNotToTrust(file); !reason.empty())
            return refuse(refusal, std::move(reason));
    }
    if (!readDescription(refusal) || !fitsTheLibrary(refusal))
        return false;
    const auto name = info.string(kBundleExecutableKey);
    if (!name || name->empty())
        return refuse(refusal, "it names no object (" + std::string(kBundleExecutableKey) + ")");
    const auto object = trustedObject(path, *name, refusal);
    if (!object)
        return false;
    std::string reason;
    const Module module = internal::loadModule(*object, reason);
    if (!module.base)
        return refuse(refusal, std::move(reason));
    KnownBundles& known = KnownBundles::shared();
    std::lock_guard guard(known.lock);
    known.byModule.try_emplace(module.base, known.byPath.at(path));
    return true;
}

Bundle::Bundle(std::unique_ptr<Private> state) : private_(std::move(state)) {}
Bundle::~Bundle() = default;

std::shared_ptr<Bundle> Bundle::bundleAtPath(std::string_view path, std::string* refusal)
{
    if (path.empty() || path.find('\0') != std::string_view::npos) {
        refuse(refusal, "it is no path");
        return nullptr;
    }
    const std::string folder = normalized(path);
    if (!isBundleFolder(folder, refusal))
        return nullptr;

    KnownBundles& known = KnownBundles::shared();
    std::shared_ptr<Bundle> bundle;
    {
        std::lock_guard guard(known.lock);
        if (const auto entry = known.byPath.find(folder); entry != known.byPath.end())
            bundle = entry->second;
    }
    if (!bundle) {
        auto state = std::make_unique<Private>();
        state->path = folder;
        bundle = std::shared_ptr<Bundle>(new Bundle(std::move(state)));
    }
    {
        std::lock_guard guard(bundle->private_->lock);
        if (!bundle->private_->readDescription(refusal))
            return nullptr;
    }
    std::lock_guard guard(known.lock);
    return known.byPath.try_emplace(folder, bundle).first->second; // another thread may have been first
}

std::shared_ptr<Bundle> Bundle::bundleForAddress(const void* address)
{
    if (const void* base = internal::moduleOf(address).base) {
        KnownBundles& known = KnownBundles::shared();
        std::lock_guard guard(known.lock);
        if (const auto entry = known.byModule.find(base); entry != known.byModule.end())
            return entry->second;
    }
    return libraryBundle();
}

std::shared_ptr<Bundle> Bundle::libraryBundle()
{
    std::string folder = libraryFolder();
    KnownBundles& known = KnownBundles::shared();
    std::lock_guard guard(known.lock);
    std::shared_ptr<Bundle>& bundle = known.ofLibrary[folder];
    if (!bundle) {
        auto state = std::make_unique<Private>();
        state->path = std::move(folder);
        state->isLibrary = true;
        state->loaded = true;
        bundle = std::shared_ptr<Bundle>(new Bundle(std::move(state)));
    }
    return bundle;
}

const std::string& Bundle::path() const noexcept
{
    return private_->path;
}

Dictionary Bundle::infoDictionary() const
{
    std::lock_guard guard(private_->lock);
    return private_->info;
}

std::string Bundle::builtInPlugInsPath() const
{
    return private_->path + (private_->isLibrary ? "/dmf/PlugIns" : "/PlugIns");
}

std::string Bundle::resourcePath() const
{
    return private_->path + (private_->isLibrary ? "/dmf/Resources" : "/Resources");
}

bool Bundle::load(std::string* refusal)
{
    if (isLoaded())
        return true;
    std::lock_guard guard(private_->lock);
    if (!isLoaded() && private_->loadObject(refusal))
        private_->loaded = true;
    return isLoaded();
}

bool Bundle::isLoaded() const noexcept
{
    return private_->loaded;
}

} // namespace dmf
