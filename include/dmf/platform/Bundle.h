#pragma once

#include <memory>
#include <string>
#include <string_view>

#include <dmf/platform/Class.h>
#include <dmf/platform/Export.h>
#include <dmf/platform/Value.h>

namespace dmf {

/// The number of the interface between the library and its plug-ins. A plug-in states it in its description under
/// "DMPlugInInterfaceNumber"; it goes up whenever plug-ins have to be built anew.
inline constexpr int kPlugInInterfaceNumber = 2;
inline constexpr std::string_view kPlugInInterfaceNumberKey = "DMPlugInInterfaceNumber";
inline constexpr std::string_view kBundleExecutableKey = "CFBundleExecutable";

/// A folder "NAME.bundle" that holds a description (Info.plist) and the shared object which the description names
/// under "CFBundleExecutable", or the home of the library itself. One object per folder and process.
/// Thread-safe.
///
/// A bundle is described without running any of its code. Once loaded it stays loaded.
class DMF_EXPORT Bundle {
public:
    /// The bundle at `path`; empty, with a reason in `refusal` when it is not null, when the folder is not a bundle:
    /// no folder, another ending, a description that is missing, unreadable or malformed. The description is read
    /// again when its file has changed. A bundle is known by the folder in which it lies, links resolved, and its name
    /// there: a link to a bundle is another one.
    [[nodiscard]] static std::shared_ptr<Bundle> bundleAtPath(std::string_view path, std::string* refusal = nullptr);
    /// The bundle whose shared object holds `address` (a class's anchor, say); the library's own bundle when the
    /// address lies in the library or in no known bundle.
    [[nodiscard]] static std::shared_ptr<Bundle> bundleForAddress(const void* address);
    /// The bundle that stands for the library: its resources and plug-ins lie beside the library's file.
    [[nodiscard]] static std::shared_ptr<Bundle> libraryBundle();

    ~Bundle();
    Bundle(const Bundle&) = delete;
    Bundle& operator=(const Bundle&) = delete;

    [[nodiscard]] const std::string& path() const noexcept;
    /// The description; empty for the library's own bundle.
    [[nodiscard]] Dictionary infoDictionary() const;
    /// Where this bundle keeps plug-ins ("PlugIns" in its folder; "dmf/PlugIns" beside the library).
    [[nodiscard]] std::string builtInPlugInsPath() const;
    /// Where this bundle keeps resources ("Resources" in its folder; "dmf/Resources" beside the library).
    [[nodiscard]] std::string resourcePath() const;

    /// Loads the shared object, once; its classes register as it comes in. False, with a reason in `refusal`, when the
    /// object is missing, damaged or does not load; when it was built for another plug-in interface number or lies
    /// outside its folder; or when the bundle is not trusted: its folder, description or object belongs to others than
    /// root and the program's user or can be written by others, by mode or access list, or so can the folder in which
    /// it lies or one above that (but for folders with the sticky bit, further up, and those that hold the library as
    /// well). None of its code runs before these tests pass. A refusal is not remembered, but for one: when a class
    /// throws as it is announced, none of the bundle's classes stays, and its code is not run again.
    ///
    /// No lock is held while the loader is called; two threads may load one bundle, and both get it. A loaded bundle
    /// keeps one descriptor open. What a static initialiser throws otherwise ends the program, with a line in the
    /// system's log that names the bundle.
    bool load(std::string* refusal = nullptr);
    [[nodiscard]] bool isLoaded() const noexcept;

    struct Private;

private:
    explicit Bundle(std::unique_ptr<Private> state);
    const std::unique_ptr<Private> private_;
};

} // namespace dmf
