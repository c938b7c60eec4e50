#include <dmf/ADMPlugInManager.h>

#include <dmf/ADMIOProvider.h>
#include <dmf/ADMInterface.h>
#include <dmf/DMKeys.h>

#include <algorithm>
#include <memory>
#include <stdexcept>

#include <gmock/gmock.h>

#include "support/FakeServiceInfo.h"
#include "support/HostFixture.h"
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
