// Allocations of this program's own thread that fail on purpose, one table of them over a typical request.

#include <gmock/gmock.h>

#include <dmf/ADMCommunicationInfo.h>
#include <dmf/ADMFunctionalInfo.h>
#include <dmf/ADMModelInfo.h>

#include "modelinfo/Database.h"
#include "support/ReplacedAllocations.h"

namespace {

struct Plan {
    long until = 0;
    long every = 0; // 0: none fails
    long failed = 0;
};

/// Has every so many allocations of this thread fail while it lives, of those that lie within the window.
class Shortage {
public:
    Shortage(long first, long every) { now = {first, every, 0}; }
    ~Shortage() { now = {}; }
    Shortage(const Shortage&) = delete;
    Shortage& operator=(const Shortage&) = delete;

    /// How many allocations have failed.
    static long failures() { return now.failed; }
    static bool hits() noexcept
    {
        if (now.every == 0 || --now.until > 0)
            return false;
        now.until = now.every;
        ++now.failed;
        return true;
    }

private:
    static inline thread_local Plan now;
};

} // namespace

bool allocationFails() noexcept
{
    return Shortage::hits();
}

namespace {

/// What somebody who opens a device asks about its model; true when every answer is the right one.
bool ask(ADMCoreModelInfo& model, std::string_view table)
{
    const auto vendor = model.vendorName();
    const auto value = model.valueForInfoPath("Own", table);
    const auto inherited = model.valueForInfoPath("Record[@name='r']/A", table);
    const auto list = model.infoForPath("Record", table);
    const auto functional = model.functionalInfo("com.ql.Printer.Print", "IP");
    const auto services = functional ? functional->communicationInfoList() : ADMFunctionalInfo::CommunicationInfos();
    const auto name = services.empty() ? std::nullopt : services.front()->implementorClassName();
    return vendor == "A vendor of some length" && value.asString() && *value.asString() == "the file's own text" &&
           inherited.asString() && *inherited.asString() == "the parent's text" && list.size() == 1 &&
           name == "AnImplementorOfSomeLength";
}

} // namespace

TEST(ShortMemory, CostsAnAnswerAtMostAndNeverTheModel)
{
    Database database;
    database.add("DMF", "ModelName/Default",
                 xml("<Information><VendorName>A vendor of some length</VendorName></Information>"
                     "<DeviceClass name='printer'><FunctionalInterface name='print'>"
                     "<ConnectionList><Connection type='ip'><Service name='s'/></Connection></ConnectionList>"
                     "<ServiceList><Service name='s'><ClassName>AnImplementorOfSomeLength</ClassName></Service>"
                     "</ServiceList></FunctionalInterface></DeviceClass>"));
    const auto manager = ADMModelInfoManager::sharedManager();
    const auto addTable = [&](const std::string& table) {
        database.registerTable(table);
        database.add(
            table, "parent",
            xml("<Record name='r' type='t'><A>the parent's text</A><B/></Record><Record name='r'><C/></Record>"));
        database.add(table, "Default", xml("<Parent>parent</Parent><Own>the file's own text</Own>"));
    };
    const auto request = [&](const std::string& table, long first, long every) {
        addTable(table);
        std::shared_ptr<ADMCoreModelInfo> model;
        bool isRight = false;
        long failures = 0;
        {
            const Shortage shortage(first, every);
            model = manager->modelInfoWithModelName("M");
            if (model)
                isRight = ask(*model, table);
            failures = Shortage::failures();
        }
        EXPECT_TRUE(isRight || failures > 0) << first << " " << every;
        EXPECT_TRUE(!model || ask(*model, table)) << "the object, " << first << " " << every;
        EXPECT_TRUE(ask(*manager->modelInfoWithModelName("M"), table)) << "another object, " << first << " " << every;
        return failures;
    };
    int tables = 0;
    for (const long every : {1, 2, 3, 5, 8, 13, 21, 34, 55, 89, 144, 233, 377, 610, 987})
        (void)request("E" + std::to_string(++tables), every, every);
    long first = 1;
    while (request("F" + std::to_string(++tables), first, 1L << 40) > 0)
        first += first < 200 ? 1 : 7;
    EXPECT_GT(first, 150) << "the request allocates more than that";
}
