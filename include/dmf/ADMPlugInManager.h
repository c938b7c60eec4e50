#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <dmf/platform/Bundle.h>
#include <dmf/platform/Class.h>
#include <dmf/platform/Export.h>
#include <dmf/platform/Protocol.h>
#include <dmf/platform/Value.h>

/// What the manager found when it last looked at one bundle.
struct ADMPlugInReport {
    enum class State {
        refused,   ///< no usable bundle, not trusted, or its object does not load; see `reason`
        described, ///< its description was read; none of its code runs
        loaded,    ///< its object is loaded
    };
    /// A class that the description names for an interface.
    struct Implementor {
        std::string interfaceName;
        std::string className;
        /// Why the class cannot be used; empty when it can, or while the bundle is not loaded.
        std::string reason;
    };

    /// Where it was found: the folder that holds it, links resolved, and its name there.
    std::string path;
    State state = State::described;
    /// Whether it matched what was asked for.
    bool kept = false;
    /// Why it was refused, in the loader's own words where they exist; empty otherwise.
    std::string reason;
    /// The scheme that a mock plug-in serves; empty for a regular one.
    std::string mockScheme;
    std::vector<Implementor> implementors;
};

/// Finds the plug-in bundles, loads them and answers which class implements an interface for given properties.
///
/// Regular plug-ins lie in the library's own plug-in folder and in those that the program names (PlugInFolders.h),
/// which are asked after it; the entries of a matching dictionary choose among them by their descriptions. Mock
/// plug-ins lie in a folder of the machine, or are registered by a program, and stand in for real devices under a URI
/// scheme: a matching dictionary that holds kDMMockScheme asks for one. Answers are kept for the life of the process;
/// that nothing was found is not.
///
/// Candidates that do not work are skipped without a message; `reports` tells what became of each. Folders are read in
/// the order of their entries' names. Thread-safe: no lock is held while a bundle is loaded, so a plug-in may ask as it
/// comes in. A call may block while it reads folders and loads bundles.
class DMF_EXPORT ADMPlugInManager {
public:
    [[nodiscard]] static std::shared_ptr<ADMPlugInManager> sharedManager();
    ~ADMPlugInManager();

    /// The class that implements the interface, by the route that `matching` asks for; empty when there is none.
    [[nodiscard]] std::shared_ptr<const dmf::Class> implementorForProtocol(const dmf::Protocol& protocol,
                                                                           const dmf::Dictionary& matching);
    /// A class counts when it exists and implements the interface.
    [[nodiscard]] std::shared_ptr<const dmf::Class> regularImplementorForProtocol(const dmf::Protocol& protocol,
                                                                                  const dmf::Dictionary& matching);
    /// A class counts when it implements ADMIOProvider, or ADMInterface through ADMInterfaceInitialization.
    [[nodiscard]] std::shared_ptr<const dmf::Class> mockImplementorForProtocol(const dmf::Protocol& protocol,
                                                                               const dmf::Dictionary& matching);
    [[nodiscard]] bool isMockPlugInRequested(const dmf::Dictionary& matching) const;

    /// Each loads every matching plug-in of a folder (the one that `matching` asks for; that of the bundle which holds
    /// the class; the one given) and tells whether at least one is loaded. For a mock request a bundle must name both
    /// its scheme and its I/O provider.
    bool loadPlugInMatching(const dmf::Dictionary& matching);
    bool loadPlugInForClass(const std::shared_ptr<const dmf::Class>& aClass, const dmf::Dictionary& matching);
    bool loadPlugInFromBaseDir(const std::string& baseDir, const dmf::Dictionary& matching);

    /// The bundles of the folder whose descriptions hold every entry of `matching`; empty when there is none or no
    /// folder. Runs none of their code.
    [[nodiscard]] std::vector<std::shared_ptr<dmf::Bundle>> pluginsFromBaseDir(const std::string& baseDir,
                                                                               const dmf::Dictionary& matching);

    /// The class that a description names for the interface, or nothing.
    [[nodiscard]] std::optional<std::string>
    implementorNameForProtocolRegularPlugInInfo(const dmf::Protocol& protocol, const dmf::Dictionary& info) const;
    [[nodiscard]] std::optional<std::string>
    implementorNameForProtocolMockPlugInInfo(const dmf::Protocol& protocol, const dmf::Dictionary& info) const;

    /// Registers the program's own classes for a scheme, given as a mock plug-in's description. Does nothing unless the
    /// scheme and a class that implements ADMIOProvider are named; other classes of the wrong kind are left out.
    void registerMockImplementors(const dmf::Dictionary& info);
    /// Forgets every class whose registry key begins with the scheme in lower case. A scheme that was registered with
    /// capitals is not found by it: register schemes in lower case.
    void unregisterMockImplementorsForScheme(std::string_view scheme);

    [[nodiscard]] std::string mockPlugInsPath() const;

    /// What became of every bundle that was looked at so far, sorted by path; one that is gone is forgotten when its
    /// folder is looked at again. Control characters of what descriptions say are escaped.
    [[nodiscard]] std::vector<ADMPlugInReport> reports() const;
    /// Looks at every bundle of all folders, regular and mock, loads each that may be loaded, and gives the reports of
    /// them all.
    std::vector<ADMPlugInReport> examineAllPlugIns();

    struct Private;

private:
    ADMPlugInManager();
    const std::unique_ptr<Private> private_;
};
