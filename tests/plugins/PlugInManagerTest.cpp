#include <dmf/ADMPlugInManager.h>

#include <dmf/ADMIOProvider.h>
#include <dmf/ADMInterface.h>
#include <dmf/DMKeys.h>
#include <dmf/PlugInFolders.h>

#include <algorithm>
#include <memory>
#include <stdexcept>

#include <gmock/gmock.h>

#include "support/FakeServiceInfo.h"
#include "support/HostFixture.h"
#include "support/Process.h"
#include "support/TestPlugIns.h"

namespace fs = std::filesystem;
using dmf::Class;
using dmf::ClassRegistry;
using dmf::Dictionary;
using testing::HasSubstr;

namespace {

const std::string kType(kDMServiceConnectionType);
const std::string kMap(kDMPlugInProtocol2ImplementorMap);
const std::string kScheme(kDMMockScheme);
const std::string kProvider(kDMMockIOProvider);
const std::string kFactories(kDMMockFactories);

/// A machine with both plug-in folders.
class PlugInHost : public HostFixture {
public:
    PlugInHost()
    {
        host().libraryFolder = path("/lib").string();
        fs::create_directories(regular());
        fs::create_directories(mocks());
    }
    fs::path regular() const { return path("/lib/dmf/PlugIns"); }
    fs::path mocks() const { return path("/var/cache/DMF/MockPlugIns"); }
    /// A mock for "sim" with a provider and one functional service.
    void addWholeMock() const
    {
        addMock("mock", "Beta",
                {{kScheme, "sim"},
                 {kProvider, "BetaProvider"},
                 {kFactories, Dictionary{{"b", Dictionary{{"FunctionalThing", "Nobody"}, {"Strange", "BetaOdd"}}},
                                         {"a", Dictionary{{"FunctionalThing", "BetaService"}}}}}});
    }

    /// A regular plug-in for a connection type, whose class implements ADMIOProvider.
    fs::path addRegular(const std::string& name, const std::string& object, const std::string& type,
                        const std::string& className) const
    {
        return testplugins::make(regular() / (name + ".bundle"), object,
                                 {{kType, type}, {kMap, Dictionary{{"ADMIOProvider", className}}}});
    }
    fs::path addMock(const std::string& name, const std::string& object, const Dictionary& info) const
    {
        return testplugins::make(mocks() / (name + ".bundle"), object, info);
    }
};

ADMPlugInManager& manager()
{
    return *ADMPlugInManager::sharedManager();
}

std::string nameOf(const std::shared_ptr<const Class>& found)
{
    return found ? found->name() : "";
}

std::string providerFor(const Dictionary& matching)
{
    return nameOf(manager().implementorForProtocol(ADMIOProvider::protocol(), matching));
}

const ADMPlugInReport& reportOf(const std::vector<ADMPlugInReport>& reports, std::string_view name)
{
    const auto found = std::ranges::find_if(reports, [&](const auto& it) { return it.path.ends_with(name); });
    if (found == reports.end())
        throw std::runtime_error("no report of " + std::string(name));
    return *found;
}

constexpr dmf::Protocol kFunctional("FunctionalThing", {}, {});

} // namespace

DMF_REGISTER_CLASS(OwnProvider)
{
    described.implements<ADMIOProvider>([] { return std::shared_ptr<ADMIOProvider>(); });
}
DMF_REGISTER_CLASS(OwnService)
{
    described.implements<ADMInterfaceInitialization>(
        [](const std::shared_ptr<ADMServiceInfo>&) { return std::shared_ptr<ADMInterface>(); });
}

TEST(PlugInManager, FirstWorkingCandidateByNameWinsAndTheOthersAreSkipped)
{
    PlugInHost host;
    host.writeFile("/lib/dmf/PlugIns/README", "no bundle");
    fs::create_symlink("nowhere", host.regular() / "a-dangling.bundle");
    fs::create_directory(host.regular() / "b-bare.bundle");
    host.addRegular("c-other-type", "Alpha", "IPP", "AlphaProvider");
    fs::permissions(host.addRegular("d-open", "Refused", "IP", "RefusedProvider"), fs::perms::all);
    fs::remove(host.addRegular("e-no-object", "Refused", "IP", "RefusedProvider") / "Object.so");
    testplugins::make(host.regular() / "f-other-interface.bundle", "Alpha", {{kType, "IP"}});
    host.addRegular("g-missing-class", "Beta", "IP", "NobodysProvider");
    host.addRegular("h-wrong-class", "Beta", "IP", "BetaOdd");
    host.addRegular("i-good", "Gamma", "IP", "GammaProvider");
    host.addRegular("j-not-reached", "Refused", "IP", "RefusedProvider");

    EXPECT_EQ(providerFor({{kType, "IP"}}), "GammaProvider");
    EXPECT_EQ(ClassRegistry::shared().classNamed("RefusedProvider"), nullptr);

    const auto reports = manager().reports();
    using State = ADMPlugInReport::State;
    EXPECT_THAT(reportOf(reports, "a-dangling.bundle").reason, HasSubstr("link to nothing"));
    EXPECT_THAT(reportOf(reports, "b-bare.bundle").reason, HasSubstr("Info.plist"));
    EXPECT_FALSE(reportOf(reports, "c-other-type.bundle").kept);
    EXPECT_EQ(reportOf(reports, "d-open.bundle").state, State::refused);
    EXPECT_THAT(reportOf(reports, "d-open.bundle").reason, HasSubstr("by everybody"));
    EXPECT_THAT(reportOf(reports, "e-no-object.bundle").reason, HasSubstr("cannot be found"));
    EXPECT_THAT(reportOf(reports, "g-missing-class.bundle").implementors.at(0).reason, HasSubstr("no class"));
    EXPECT_THAT(reportOf(reports, "h-wrong-class.bundle").implementors.at(0).reason, HasSubstr("not implement"));
    EXPECT_EQ(reportOf(reports, "i-good.bundle").state, State::loaded);
    EXPECT_EQ(reportOf(reports, "j-not-reached.bundle").state, State::described);
    // Another look at the folder does not take back what loading said.
    (void)manager().pluginsFromBaseDir(host.regular().string(), {});
    EXPECT_THAT(reportOf(manager().reports(), "d-open.bundle").reason, HasSubstr("by everybody"));
    EXPECT_EQ(reports.size(), 10u);
}

TEST(PlugInManager, AnswersAreKeptPerInterfaceAndMatchingAndFailuresAreNot)
{
    PlugInHost host;
    EXPECT_EQ(providerFor({{kType, "IP"}, {"more", 1}}), "");
    const fs::path path = host.addRegular("one", "Alpha", "IP", "AlphaProvider");
    testplugins::writeInfo(
        path, testplugins::info({{kType, "IP"}, {"more", 1}, {kMap, Dictionary{{"ADMIOProvider", "AlphaProvider"}}}}));
    EXPECT_EQ(providerFor({{kType, "IP"}, {"more", 1}}), "AlphaProvider"); // looked for again
    fs::remove_all(host.regular());
    EXPECT_EQ(providerFor({{"more", 1}, {kType, "IP"}}), "AlphaProvider");
    EXPECT_EQ(providerFor({{kType, "IP"}, {"more", 2}}), "");
    EXPECT_EQ(manager().implementorForProtocol(kFunctional, {{kType, "IP"}, {"more", 1}}), nullptr);
}

TEST(PlugInManager, MockRequestsLookInTheMockFolderOnly)
{
    PlugInHost host;
    const Dictionary mock{{kScheme, "sim"}};
    testplugins::make(host.regular() / "regular.bundle", "Alpha",
                      {{kScheme, "sim"}, {kMap, Dictionary{{"ADMIOProvider", "AlphaProvider"}}}});
    EXPECT_EQ(providerFor(mock), "");

    host.addWholeMock();
    EXPECT_EQ(providerFor(mock), "BetaProvider");
    const auto service = manager().implementorForProtocol(kFunctional, mock);
    EXPECT_EQ(nameOf(service), "BetaService");
    EXPECT_TRUE(service->make<ADMInterfaceInitialization>(std::make_shared<FakeServiceInfo>()));
    // Neither an I/O provider nor a functional service.
    EXPECT_EQ(manager().implementorForProtocol(dmf::Protocol("Strange", {}, {}), mock), nullptr);
    EXPECT_EQ(providerFor({{kScheme, "Sim"}}), "");
}

TEST(PlugInManager, RegisteredMocksNeedNoFolder)
{
    PlugInHost host;
    fs::remove_all(host.mocks());
    const Dictionary factories{{"any", Dictionary{{"FunctionalThing", "OwnService"}, {"Strange", "OwnProvider"}}}};
    const auto info = [&](const char* scheme, const char* providerName) {
        return Dictionary{{kScheme, scheme}, {kProvider, providerName}, {kFactories, factories}};
    };
    manager().registerMockImplementors({{kScheme, "half"}, {kFactories, factories}});
    manager().registerMockImplementors(info("wrong", "OwnService"));
    EXPECT_EQ(manager().implementorForProtocol(kFunctional, {{kScheme, "half"}}), nullptr);
    EXPECT_EQ(manager().implementorForProtocol(kFunctional, {{kScheme, "wrong"}}), nullptr);

    manager().registerMockImplementors(info("mockusb", "OwnProvider"));
    manager().registerMockImplementors(info("MockUSB", "OwnProvider"));
    EXPECT_EQ(providerFor({{kScheme, "mockusb"}}), "OwnProvider");
    EXPECT_EQ(nameOf(manager().implementorForProtocol(kFunctional, {{kScheme, "mockusb"}})), "OwnService");
    EXPECT_EQ(manager().implementorForProtocol(dmf::Protocol("Strange", {}, {}), {{kScheme, "mockusb"}}), nullptr);

    manager().unregisterMockImplementorsForScheme("");
    EXPECT_EQ(providerFor({{kScheme, "mockusb"}}), "OwnProvider");
    manager().unregisterMockImplementorsForScheme("MockUSB");
    EXPECT_EQ(providerFor({{kScheme, "mockusb"}}), "");
    EXPECT_EQ(manager().implementorForProtocol(kFunctional, {{kScheme, "mockusb"}}), nullptr);
    EXPECT_EQ(providerFor({{kScheme, "MockUSB"}}), "OwnProvider"); // registered with capitals, so it stays
}

TEST(PlugInManager, LoadingTakesEveryMatchingPlugInOfTheFolder)
{
    PlugInHost host;
    EXPECT_FALSE(manager().loadPlugInMatching({{kType, "IP"}}));
    fs::permissions(host.addRegular("a", "Refused", "IP", "RefusedProvider"), fs::perms::all);
    const fs::path delta = host.addRegular("b", "Delta", "IP", "Nobody"); // a missing class is no matter here
    EXPECT_TRUE(manager().loadPlugInMatching({{kType, "IP"}}));
    ASSERT_NE(ClassRegistry::shared().classNamed("DeltaProvider"), nullptr);
    EXPECT_EQ(ClassRegistry::shared().classNamed("RefusedProvider"), nullptr);

    host.addMock("incomplete", "Refused", {{kScheme, "sim"}});
    EXPECT_FALSE(manager().loadPlugInMatching({{kScheme, "sim"}})); // names no I/O provider
    EXPECT_EQ(ClassRegistry::shared().classNamed("RefusedProvider"), nullptr);

    // A plug-in's own plug-ins lie in its folder.
    testplugins::make(delta / "PlugIns/inner.bundle", "Gamma", {{"inner", true}});
    const auto found = ClassRegistry::shared().classNamed("DeltaProvider");
    EXPECT_TRUE(manager().loadPlugInForClass(found, {{"inner", true}}));
    EXPECT_NE(ClassRegistry::shared().classNamed("GammaProvider"), nullptr);
    EXPECT_FALSE(manager().loadPlugInForClass(nullptr, {}));
}

TEST(PlugInManager, ExaminingReportsEveryBundleOfBothFolders)
{
    PlugInHost host;
    host.addRegular("good", "Alpha", "IP", "AlphaProvider");
    fs::create_directory(host.regular() / "bare.bundle");
    host.addWholeMock();
    host.addMock("incomplete", "Refused", {{kScheme, "sim"}});
    ASSERT_EQ(manager().examineAllPlugIns().size(), 4u);
    fs::remove_all(host.regular() / "bare.bundle");
    const auto reports = manager().examineAllPlugIns(); // what is gone is forgotten
    ASSERT_EQ(reports.size(), 3u);
    using State = ADMPlugInReport::State;
    EXPECT_EQ(reportOf(reports, "good.bundle").state, State::loaded);
    EXPECT_EQ(reportOf(reports, "incomplete.bundle").state, State::refused);
    const auto& mock = reportOf(reports, "mock.bundle");
    EXPECT_EQ(mock.mockScheme, "sim");
    ASSERT_EQ(mock.implementors.size(), 4u);
    EXPECT_EQ(mock.implementors[1].className, "BetaService");
    EXPECT_EQ(mock.implementors[1].reason, "");
}

TEST(PlugInManager, EachBundleHasOneReportByWhicheverPathItsFolderIsSearched)
{
    PlugInHost host;
    host.addRegular("one", "Alpha", "IP", "AlphaProvider");
    host.writeFile("/lib/dmf/PlugIns/broken.bundle/else", "");
    fs::create_directories(host.path("/far/away"));
    fs::create_symlink(host.regular().parent_path(), host.path("/far/away/link"));
    fs::create_symlink(host.path("/far/away"), host.regular().parent_path() / "out");
    const fs::path before = fs::current_path();
    fs::current_path(host.path("/lib"));
    // "out/.." is /far, and not where "out" lies.
    for (const fs::path& folder : {host.regular(), fs::path("dmf/PlugIns"), fs::path("dmf/../dmf/PlugIns/"),
                                   host.path("/far/away/link/PlugIns"), host.path("/lib/dmf/out/../away/link/PlugIns")})
        EXPECT_EQ(manager().pluginsFromBaseDir(folder.string(), {}).size(), 1u) << folder;
    fs::current_path(before);
    EXPECT_EQ(manager().reports().size(), 2u);

    fs::remove_all(host.regular() / "broken.bundle");
    EXPECT_EQ(manager().pluginsFromBaseDir(host.path("/far/away/link/PlugIns").string(), {}).size(), 1u);
    EXPECT_EQ(manager().reports().size(), 1u); // what is gone is forgotten at the next look
    fs::remove_all(host.regular());
    EXPECT_TRUE(manager().pluginsFromBaseDir(host.regular().string(), {}).empty());
    EXPECT_TRUE(manager().reports().empty());
}

TEST(PlugInManager, RelativelyLoadedLibraryFindsItsOwnPlugInsFromElsewhere)
{
    HostFixture host;
    // A copy, so that no run path leads to the library.
    fs::create_directories(host.path("/copy/lib/dmf/PlugIns"));
    fs::copy_file(fs::canonical(DMF_BUILD_FOLDER "/lib/libdmf.so"), host.path("/copy/lib/libdmf.so.1"));
    testplugins::make(host.path("/copy/lib/dmf/PlugIns/own.bundle"), "Alpha");
    testplugins::make(host.path("/trap/lib/dmf/PlugIns/foreign.bundle"), "Alpha");
    const fs::path before = fs::current_path();
    fs::current_path(host.path("/copy"));
    const auto result = Process::run({DMF_BUILD_FOLDER "/bin/plugins_elsewhere", host.path("/trap").string()}, {},
                                     {{"LD_LIBRARY_PATH", "lib"}});
    fs::current_path(before);
    const std::string own = fs::canonical(host.path("/copy/lib/dmf/PlugIns")).string();
    EXPECT_EQ(result.out, own + "\n" + own + "/own.bundle\n") << result.err;
}

TEST(PlugInManager, MockPlugInsThatServeAreNotRefused)
{
    PlugInHost host;
    host.addMock("services", "Beta",
                 {{kScheme, "sim"}, {kFactories, Dictionary{{"a", Dictionary{{"FunctionalThing", "BetaService"}}}}}});
    const Dictionary mock{{kScheme, "sim"}};
    EXPECT_EQ(nameOf(manager().implementorForProtocol(kFunctional, mock)), "BetaService");
    EXPECT_EQ(reportOf(manager().examineAllPlugIns(), "services.bundle").state, ADMPlugInReport::State::loaded);
}

TEST(PlugInManager, NoLockIsHeldWhileAPlugInIsLoaded)
{
    PlugInHost host;
    testplugins::make(host.regular() / "asking.bundle", "Asking",
                      {{"asking", true}, {kMap, Dictionary{{"ADMIOProvider", "AskingProvider"}}}});
    EXPECT_EQ(providerFor({{"asking", true}}), "AskingProvider");
}

TEST(PlugInManager, ReportsHoldNoControlCharacters)
{
    PlugInHost host;
    testplugins::make(host.regular() / "odd.bundle", "Refused",
                      {{std::string(dmf::kBundleExecutableKey), "a\xC2\x9B"
                                                                "2J"},
                       {kScheme, "s\n"},
                       {kMap, Dictionary{{"If\x7F", "Class\n"}}}});
    const auto report = manager().examineAllPlugIns().at(0);
    EXPECT_THAT(report.reason, HasSubstr("a\\u009b2J"));
    EXPECT_EQ(report.mockScheme, "s\\n");
    EXPECT_EQ(report.implementors.at(0).interfaceName, "If\\x7f");
    EXPECT_EQ(report.implementors.at(0).className, "Class\\n");
}

TEST(PlugInManager, ProgramsOwnFoldersAreAskedAfterTheLibrarys)
{
    PlugInHost host;
    const auto add = [&](const char* folder, const std::string& object, const std::string& type) {
        testplugins::make(host.path(folder) / "x.bundle", object,
                          {{kType, type}, {kMap, Dictionary{{"ADMIOProvider", object + "Provider"}}}});
    };
    host.setEnvironment("DMF_PLUGIN_PATH", ":" + host.path("/develop").string() + ":" + host.path("/none").string());
    host.addRegular("library", "Alpha", "A", "AlphaProvider");
    add("/own", "Beta", "B");
    add("/own/late", "Refused", "A");
    add("/develop", "Gamma", "G");
    EXPECT_EQ(providerFor({{kType, "B"}}), "");
    EXPECT_EQ(providerFor({{kType, "G"}}), "GammaProvider");

    EXPECT_TRUE(dmf::addPlugInFolder(host.path("/own").string()));
    EXPECT_FALSE(dmf::addPlugInFolder(host.path("/own/late/..").string())); // named already
    EXPECT_TRUE(dmf::addPlugInFolder(host.path("/own/late").string()));
    EXPECT_FALSE(dmf::addPlugInFolder(""));
    EXPECT_EQ(providerFor({{kType, "B"}}), "BetaProvider");
    EXPECT_EQ(providerFor({{kType, "A"}}), "AlphaProvider");
    EXPECT_EQ(ClassRegistry::shared().classNamed("RefusedProvider"), nullptr);
    using Origin = dmf::PlugInFolder::Origin;
    std::vector<Origin> origins;
    for (const auto& folder : dmf::plugInFolders())
        origins.push_back(folder.origin);
    EXPECT_THAT(origins, testing::ElementsAre(Origin::library, Origin::program, Origin::program, Origin::environment,
                                              Origin::environment));
    EXPECT_EQ(manager().examineAllPlugIns().size(), 4u);

    EXPECT_TRUE(dmf::removePlugInFolder(host.path("/own").string()));
    EXPECT_TRUE(dmf::removePlugInFolder(host.path("/own/late").string()));
    EXPECT_FALSE(dmf::removePlugInFolder(host.path("/own").string()));
    EXPECT_EQ(providerFor({{kType, "B"}}), "BetaProvider"); // what was found stays
    EXPECT_EQ(providerFor({{kType, "B"}, {std::string(dmf::kPlugInInterfaceNumberKey), 1}}), "");
}

TEST(PlugInManager, ProgramsWithRaisedRightsTakeNoFoldersFromTheEnvironment)
{
    PlugInHost host;
    host.setEnvironment("DMF_PLUGIN_PATH", host.path("/develop").string());
    host.host().hasRaisedRights = true;
    EXPECT_EQ(dmf::plugInFolders().size(), 1u);
}
