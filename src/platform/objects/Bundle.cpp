#include <dmf/platform/Bundle.h>

#include <sys/stat.h>

#include <dmf/platform/PropertyList.h>

#include <atomic>
#include <cerrno>
#include <map>
#include <mutex>
#include <system_error>
#include <utility>

#include "platform/files/Files.h"
#include "platform/host/Host.h"
#include "platform/host/Trust.h"
#include "platform/objects/BundleObject.h"

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

/// The folder at `path` in the form under which its bundle is kept: no link but perhaps itself. The same bundle is
/// found by any path that leads to it, whichever folder the process is in; nothing when its folder is gone.
std::optional<std::string> normalized(std::string_view path)
{
    std::string text(path);
    while (text.size() > 1 && text.back() == '/')
        text.pop_back();
    const std::string name = text.substr(text.rfind('/') + 1); // rfind gives npos, the number before 0
    if (name == "." || name == "..")
        return internal::realPath(text);
    auto folder = internal::realPath(internal::folderOf(text));
    if (folder)
        folder->append(folder->ends_with('/') ? "" : "/").append(name);
    return folder;
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

std::string libraryFolder()
{
    const auto& replaced = Host::current().libraryFolder;
    return replaced ? *replaced : internal::ownFolder();
}

bool fitsTheLibrary(const Dictionary& info, std::string* refusal)
{
    const Value& stated = info[kPlugInInterfaceNumberKey];
    if (stated.isNull())
        return refuse(refusal,
                      "it states no plug-in interface number (" + std::string(kPlugInInterfaceNumberKey) + ")");
    if (stated == Value(kPlugInInterfaceNumber))
        return true;
    const std::string text = stated.asDictionary() || stated.asArray() ? "that is none" : stated.description();
    return refuse(refusal, "it was built for plug-in interface number " + text + ", not " +
                               std::to_string(kPlugInInterfaceNumber));
}

} // namespace

struct Bundle::Private {
    std::string path;
    bool isLibrary = false;
    std::atomic<bool> loaded{false};
    std::mutex lock;
    Dictionary info;         // guarded by lock
    FileSignature signature; // of the description that `info` was read from; guarded by lock
    std::string fault;       // why its code, which is in the process, must not be used; guarded by lock

    [[nodiscard]] std::string descriptionPath() const { return path + "/Info.plist"; }
    bool readDescription(std::string* refusal);
    bool loadObject(std::string* refusal);
    bool takeIn(const Module& module, std::string* refusal);
    [[nodiscard]] Dictionary description();
};

bool Bundle::Private::readDescription(std::string* refusal)
{
    std::lock_guard guard(lock);
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

Dictionary Bundle::Private::description()
{
    std::lock_guard guard(lock);
    return info;
}

// Trust comes first: only then is it certain that what is read and what is loaded is what its owner put there.
bool Bundle::Private::loadObject(std::string* refusal)
{
    std::string reason = internal::reasonNotToTrustBundle(path);
    if (reason.empty())
        reason = internal::reasonNotToTrust(descriptionPath());
    if (!reason.empty())
        return refuse(refusal, std::move(reason));
    {
        // Read anew in any case: what was read before the tests could be anybody's, and two changes within one tick of
        // the file system's clock look alike.
        std::lock_guard guard(lock);
        signature = {};
    }
    if (!readDescription(refusal))
        return false;
    const Dictionary stated = description();
    if (!fitsTheLibrary(stated, refusal))
        return false;
    const auto name = stated.string(kBundleExecutableKey);
    if (!name || name->empty())
        return refuse(refusal, "it names no object (" + std::string(kBundleExecutableKey) + ")");
    {
        std::lock_guard guard(lock);
        if (!fault.empty())
            return refuse(refusal, fault);
    }
    const Module module = internal::loadBundleObject(path, *name, reason);
    return module.base ? takeIn(module, refusal) : refuse(refusal, std::move(reason));
}

bool Bundle::Private::takeIn(const Module& module, std::string* refusal)
{
    if (std::string reason = internal::moduleFault(module.base); !reason.empty()) {
        ClassRegistry& registry = ClassRegistry::shared();
        for (const auto& half : registry.classesInModuleOf(module.base))
            registry.remove(half);
        std::lock_guard guard(lock);
        fault = std::move(reason);
        return refuse(refusal, fault);
    }
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
    const auto folder = normalized(path);
    if (!folder) {
        refuse(refusal, errorText(errno));
        return nullptr;
    }
    if (!isBundleFolder(*folder, refusal))
        return nullptr;

    KnownBundles& known = KnownBundles::shared();
    std::shared_ptr<Bundle> bundle;
    {
        std::lock_guard guard(known.lock);
        if (const auto entry = known.byPath.find(*folder); entry != known.byPath.end())
            bundle = entry->second;
    }
    if (!bundle) {
        auto state = std::make_unique<Private>();
        state->path = *folder;
        bundle = std::shared_ptr<Bundle>(new Bundle(std::move(state)));
    }
    if (!bundle->private_->readDescription(refusal))
        return nullptr;
    std::lock_guard guard(known.lock);
    return known.byPath.try_emplace(*folder, bundle).first->second; // another thread may have been first
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
    return private_->description();
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
    // Whoever comes while another thread loads it does the same: the loader runs its code once and lets both wait for
    // it.
    if (!isLoaded() && private_->loadObject(refusal))
        private_->loaded = true;
    return isLoaded();
}

bool Bundle::isLoaded() const noexcept
{
    return private_->loaded;
}

} // namespace dmf
