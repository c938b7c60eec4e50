#include <atomic>
#include <future>
#include <thread>

#include <gmock/gmock.h>

#include <dmf/ADMModelInfoImp.h>
#include <dmf/platform/Error.h>
#include <dmf/platform/NotificationCenter.h>

#include "modelinfo/Database.h"

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// The tables whose new locations are announced while it lives.
class Announcements {
public:
    std::vector<dmf::Value> tables;

private:
    const dmf::NotificationCenter::Observation observation_ = dmf::NotificationCenter::defaultCenter().addObserver(
        "kDMModelInfoTableLocationDidChangeNotification", [this](const dmf::Notification& notification) {
            EXPECT_EQ(notification.sender, nullptr);
            tables.push_back(notification.userInfo["changedTable"]);
        });
};

} // namespace

TEST(TableLocations, AreRegisteredCheckedAndAnnounced)
{
    Database database;
    Announcements announced;
    ADMPrivateModelInfoManager manager;
    const std::string first = database.location("first").string();
    const std::string second = database.location("second").string();

    EXPECT_TRUE(manager.registerTable("T", first));
    EXPECT_TRUE(manager.registerTable("T", first));
    EXPECT_THAT(announced.tables, ElementsAre("T")) << "the same location again is no change";
    EXPECT_TRUE(manager.registerTable("T", second));
    EXPECT_TRUE(manager.registerTable("DMFPrivate", second));
    EXPECT_THAT(announced.tables, ElementsAre("T", "T", "DMFPrivate"));
    EXPECT_THAT(database.takeLog(), IsEmpty());
    EXPECT_EQ(manager.modelInfoPathForTable("T"), second);

    EXPECT_FALSE(manager.registerTable("DMF", first));
    EXPECT_FALSE(manager.registerTable({}, first));
    EXPECT_FALSE(manager.registerTable("T", {}));
    EXPECT_FALSE(manager.registerTable("T", "/no/such/folder"));
    EXPECT_THAT(database.takeLog(),
                ElementsAre("W ModelInfo: attempt to register location of table with the reserved name.",
                            "E ModelInfo: Invalid parameters for registering table location",
                            "E ModelInfo: Invalid parameters for registering table location",
                            "W ModelInfo: attempt to register invalid location '/no/such/folder' of the table 'T'"));
    EXPECT_EQ(manager.modelInfoPathForTable("T"), second) << "a refusal leaves the old location";
    EXPECT_EQ(announced.tables.size(), 3u);

    EXPECT_EQ(manager.modelInfoPathForTable("DMF"), database.resources().string());
    EXPECT_EQ(manager.modelInfoPathForTable("Other"),
              database.machine.path("/Library/Application Support/ql/dmf/ModelDatabase").string());
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
    std::filesystem::create_symlink("file", path("linkToFile"));

    ADMPrivateModelInfoManager manager;
    for (const char* valid : {"real", "absolute", "relative"})
        EXPECT_TRUE(manager.isValidTableLocation(path(valid))) << valid;
    for (const char* invalid : {"twice", "dangling", "file", "linkToFile", "missing"})
        EXPECT_FALSE(manager.isValidTableLocation(path(invalid))) << invalid;
    EXPECT_FALSE(manager.isValidTableLocation(""));
}

TEST(HandlerCache, KeepsWhatWasReadAndForgetsFailures)
{
    Database database;
    ADMPrivateModelInfoManager manager;
    ASSERT_TRUE(manager.registerTable("T", database.location().string()));
    EXPECT_EQ(manager.modelInfoHandlerForFile("a", "T"), nullptr);
    database.add("T", "a", plist(""));
    const auto handler = manager.modelInfoHandlerForFile("a", "T");
    ASSERT_NE(handler, nullptr);

    // Neither a changed file nor a new location reaches a file that was read.
    database.addPlain("T", "a", "spoilt");
    ASSERT_TRUE(manager.registerTable("T", database.location("elsewhere").string()));
    EXPECT_EQ(manager.modelInfoHandlerForFile("a", "T"), handler);
    EXPECT_EQ(manager.modelInfoHandlerForFile("a", "U"), nullptr) << "tables do not mix";
    EXPECT_THAT(database.takeLog(), IsEmpty());
}

TEST(ModelInfoManager, IsOneAndItsAbstractFaceDoesNothing)
{
    Database database;
    EXPECT_EQ(ADMModelInfoManager::init(), ADMModelInfoManager::sharedManager());
    EXPECT_EQ(ADMModelInfoManager::sharedManager(), ADMPrivateModelInfoManager::sharedManager());
    struct Unfinished : ADMModelInfoManager {
    } unfinished;
    EXPECT_THROW(unfinished.registerTable("T", "/"), dmf::UnrecognizedOperation);
    EXPECT_THROW((void)unfinished.modelInfoWithModelName("M"), dmf::UnrecognizedOperation);

    const auto manager = ADMModelInfoManager::sharedManager();
    const auto info = manager->modelInfoWithModelName("M");
    EXPECT_EQ(info->modelName(), "M");
    EXPECT_NE(manager->modelInfoWithModelName("M"), info);
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
