#include <atomic>
#include <future>
#include <thread>

#include <gmock/gmock.h>

#include <dmf/ADMModelInfoImp.h>
#include <dmf/platform/NotificationCenter.h>

#include "modelinfo/Database.h"
#include "modelinfo/ForeignParser.h"
#include "modelinfo/model/ModelInfoManagers.h"

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(TableLocations, AreRegisteredCheckedAndAnnounced)
{
    Database database;
    std::vector<dmf::Value> announced;
    const auto observation = dmf::NotificationCenter::defaultCenter().addObserver(
        "kDMModelInfoTableLocationDidChangeNotification",
        [&](const dmf::Notification& it) { announced.push_back(it.userInfo["changedTable"]); });
    const auto owned = dmf::internal::ModelInfoManagers::make();
    ADMPrivateModelInfoManager& manager = *owned;
    const std::string first = database.location("first").string();
    const std::string second = database.location("second").string();

    EXPECT_TRUE(manager.registerTable("T", first));
    EXPECT_TRUE(manager.registerTable("T", first));
    EXPECT_THAT(announced, ElementsAre("T")) << "the same location again is no change";
    EXPECT_TRUE(manager.registerTable("T", second));
    EXPECT_THAT(database.takeLog(), IsEmpty());
    EXPECT_FALSE(manager.registerTable("DMF", first));
    EXPECT_FALSE(manager.registerTable({}, first));
    EXPECT_FALSE(manager.registerTable("T", {}));
    EXPECT_FALSE(manager.registerTable("T", "/no/such/folder"));
    EXPECT_THAT(database.takeLog(),
                ElementsAre("W  ModelInfo: attempt to register location of table with the reserved name.",
                            "E  ModelInfo: Invalid parameters for registering table location",
                            "E  ModelInfo: Invalid parameters for registering table location",
                            "W  ModelInfo: attempt to register invalid location '/no/such/folder' of the table 'T'"));
    EXPECT_EQ(manager.modelInfoPathForTable("T"), second) << "a refusal leaves the old location";
    EXPECT_THAT(announced, ElementsAre("T", "T"));
    EXPECT_EQ(manager.modelInfoPathForTable("Other"),
              database.machine.path("/Library/Application Support/ql/dmf/ModelDatabase").string());
}

TEST(TableLocations, AreKeptWhateverAnObserverThrows)
{
    Database database;
    const auto observation = dmf::NotificationCenter::defaultCenter().addObserver(
        kDMModelInfoTableLocationDidChangeNotification, [](const dmf::Notification&) { throw 7; });
    const auto manager = dmf::internal::ModelInfoManagers::make();
    EXPECT_TRUE(manager->registerTable("T", database.location().string()));
    EXPECT_EQ(manager->modelInfoPathForTable("T"), database.location().string());
    EXPECT_THAT(database.takeLog(),
                ElementsAre("E  ModelInfo: unknown exception from an observer of the location of the table 'T'"));
}

TEST(TableLocations, AreFoldersOrOneLinkToAFolder)
{
    Database database;
    const auto folder = database.location("folder");
    const auto path = [&](std::string_view name) { return (folder / name).string(); };
    std::filesystem::create_directory(path("real"));
    std::filesystem::create_directory_symlink(path("real"), path("absolute"));
    std::filesystem::create_directory_symlink("real", path("relative"));
    std::filesystem::create_directory_symlink("relative", path("twice"));
    std::filesystem::create_symlink("nothing", path("dangling"));
    Database::write(path("file"), "");

    const auto owned = dmf::internal::ModelInfoManagers::make();
    ADMPrivateModelInfoManager& manager = *owned;
    std::filesystem::create_directory_symlink("relative/", path("slash"));
    for (const char* valid : {"real", "absolute", "relative", "real/", "relative//", "relative/."})
        EXPECT_TRUE(manager.isValidTableLocation(path(valid))) << valid;
    for (const char* invalid : {"twice", "twice/", "twice//", "twice/./", "slash", "dangling", "file", "missing"})
        EXPECT_FALSE(manager.isValidTableLocation(path(invalid))) << invalid;
}

TEST(HandlerCache, KeepsWhatWasReadAndForgetsFailures)
{
    Database database;
    const auto owned = dmf::internal::ModelInfoManagers::make();
    ADMPrivateModelInfoManager& manager = *owned;
    ASSERT_TRUE(manager.registerTable("T", database.location().string()));
    EXPECT_EQ(manager.modelInfoHandlerForFile("a", "T"), nullptr);
    database.add("T", "a", plist(""));
    const auto handler = manager.modelInfoHandlerForFile("a", "T");
    ASSERT_NE(handler, nullptr);
    EXPECT_EQ(manager.modelInfoHandlerForFile("A", "T"), handler) << "a name is the same in any letter case";

    // Neither a changed file nor a new location reaches a file that was read.
    database.addPlain("T", "a", "spoilt");
    ASSERT_TRUE(manager.registerTable("T", database.location("elsewhere").string()));
    EXPECT_EQ(manager.modelInfoHandlerForFile("a", "T"), handler);
    EXPECT_EQ(manager.modelInfoHandlerForFile("a", "U"), nullptr) << "tables do not mix";
    EXPECT_THAT(database.takeLog(), IsEmpty());
}

TEST(ModelInfoManager, MayBeReadWhileLocationsChange)
{
    Database database;
    const auto manager = ADMPrivateModelInfoManager::sharedManager();
    const std::string places[] = {database.location("one").string(), database.location("two").string()};
    ASSERT_TRUE(manager->registerTable("Moving", database.location().string()));
    database.add("Moving", "Default", plist("<key>k</key><integer>1</integer>"));
    ADMModelInfoImp info("M");
    ASSERT_EQ(info.valueForInfoPath("k", "Moving"), 1); // read, and therefore kept for good

    const auto everything = std::async(std::launch::async, [&] {
        std::atomic<bool> stop = false;
        std::vector<std::thread> readers;
        for (int i = 0; i < 2; ++i) {
            readers.emplace_back([&] {
                while (!stop)
                    EXPECT_EQ(info.valueForInfoPath("k", "Moving"), 1);
            });
        }
        for (int i = 0; i < 300; ++i)
            EXPECT_TRUE(manager->registerTable("Moving", places[i % 2]));
        stop = true;
        for (std::thread& reader : readers)
            reader.join();
    });
    if (everything.wait_for(30s) != std::future_status::ready)
        std::abort(); // a reader and the announcement wait for each other
}

TEST(ModelInfoManager, RegistersTablesWhileALookUpIsUnderWay)
{
    Database database;
    database.registerTable("Slow");
    database.add("Slow", "Default", xml("<A>1</A>"));
    std::promise<void> isUnderWay;
    std::promise<void> isRegistered;
    bool hasWaitedInVain = false;
    // As where the look-up has to wait for the loader, which the registering plug-in keeps from it.
    ForeignParser parser(database.machine, [&](const dmf::Data&) {
        isUnderWay.set_value();
        hasWaitedInVain = isRegistered.get_future().wait_for(30s) != std::future_status::ready;
        return std::make_shared<ADMXMLElementImp>("Model");
    });
    ADMModelInfoImp info("M");
    auto lookUp = std::async(std::launch::async, [&] { return info.infoFromTable("Slow"); });
    isUnderWay.get_future().wait();
    EXPECT_TRUE(ADMModelInfoManager::sharedManager()->registerTable("Slow", database.location("two").string()));
    isRegistered.set_value();
    EXPECT_NE(lookUp.get(), nullptr);
    EXPECT_FALSE(hasWaitedInVain);
}
