#include <gmock/gmock.h>

#include <dmf/DMDataExtension.h>

#include "modelinfo/Database.h"
#include "tools/dmf/ModelPack.h"

using namespace dmf::tool;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

namespace {

std::vector<std::string> texts(const std::vector<ModelProblem>& problems)
{
    std::vector<std::string> lines;
    for (const ModelProblem& problem : problems)
        lines.push_back(problem.file + ": " + problem.message);
    return lines;
}

/// The stored name of a component that no source could hold.
std::string storedComponent(std::string_view name)
{
    return com_ql_dmf_hexadecimalRepresentationString(*ADMSecureData().encryptData(dmf::Data::fromText(name), 2));
}

} // namespace

TEST(ModelPack, LeavesOutWhatTheLibraryCouldNotUse)
{
    Database database;
    const auto source = database.location("source");
    Database::write(source / "T/a.xml", xml(""));
    Database::write(source / "T/A.plist", plist(""));
    Database::write(source / "T/b.plist", xml(""));
    Database::write(source / "T/d.xml", std::string(200, ' ') + xml(""));
    Database::write(source / "T/e.xml", "");
    Database::write(source / "T/f.xml", "");
    std::filesystem::resize_file(source / "T/f.xml", 17 << 20);
    const ModelCounts counts = packModels(source, database.location("packed"));
    EXPECT_EQ(counts.files, 1u);
    EXPECT_THAT(texts(counts.problems),
                ElementsAre(HasSubstr("T/a.xml: has the same name as another file"),
                            "T/b.plist: is in the form of a .xml file", HasSubstr("T/d.xml: has neither"),
                            HasSubstr("T/e.xml: has neither"), "T/f.xml: cannot be read or is too large"));
    EXPECT_THAT(packModels(source / "missing", database.location("packed")).problems.size(), 1u);
}

TEST(ModelPack, NamesThatLeadOutsideAreNotUnpacked)
{
    Database database;
    const auto packed = database.location("packed");
    const auto opened = database.location("inner/opened");
    const std::string contents = Database::enciphered(xml(""));
    for (const char* name : {".", "/etc", "a/../../b"})
        Database::write(packed / "T" / storedComponent(name), contents);
    Database::write(packed / "T" / storedComponent("..") / storedComponent("x"), contents);
    const ModelCounts counts = unpackModels(packed, opened);
    EXPECT_EQ(counts.files, 0u);
    EXPECT_TRUE(std::filesystem::is_empty(opened));
    EXPECT_EQ(counts.problems.size(), 4u);
}

TEST(ModelPack, VerifyFindsWhatKeepsModelsFromWorking)
{
    Database database;
    const auto packed = database.location();
    const std::string service = "<ServiceList><Service name='s'/></ServiceList>";
    const auto interface = [](std::string_view content) {
        return "<DeviceClass name='printer'><FunctionalInterface name='print'>" + std::string(content) +
               "</FunctionalInterface></DeviceClass>";
    };
    database.add("V", "good",
                 xml(interface(service + "<ConnectionList><Connection type='ip'><Service name='s'/>"
                                         "</Connection></ConnectionList>")));
    database.add("V", "heir",
                 xml("<Parent>GOOD</Parent>" + interface("<ConnectionList><Connection type='usb'><Service name='s'/>"
                                                         "<Service name='t'/></Connection></ConnectionList>")));
    database.add("V", "shouting", xml("<DeviceClass name='Printer'/>"));
    database.add("V", "special",
                 xml(interface(service + "<ProtocolSpecificConnectionList><Connection type='ip'><Protocol name='p'>"
                                         "<Service name='u'/></Protocol></Connection>"
                                         "</ProtocolSpecificConnectionList>")));
    database.add("V", "orphan", xml("<Parent>nobody</Parent>"));
    database.add("V", "mixed", plist("<key>Parent</key><string>good</string>"));
    database.add("V", "round", plist("<key>Parent</key><string>round</string>"));
    database.add("V", "cut", xml("<A>").substr(0, 45));
    database.addPlain("V", "plain", xml(""));
    Database::write(packed / "V/not a stored name", "");

    EXPECT_THAT(texts(verifyModels(packed).problems),
                UnorderedElementsAre(
                    "V/heir: names the service 't' for usb, which printer.print does not have",
                    "V/shouting: has the device class 'Printer', which is only found in lower case",
                    "V/special: names the service 'u' for p over ip, which printer.print does not have",
                    "V/orphan: names the parent 'nobody', which there is not",
                    "V/mixed: names the parent 'good', which is in the other format",
                    HasSubstr("closes a circle of parents"), HasSubstr("V/cut: does not parse: "),
                    "V/plain: is not enciphered", HasSubstr("V/not a stored name: has a name that does not decipher")));
}

TEST(ModelPack, TheSampleModelsAreInOrder)
{
    Database database;
    const auto packed = database.location("packed");
    EXPECT_THAT(texts(packModels(std::filesystem::path(DMF_SOURCE_FOLDER) / "models", packed).problems), IsEmpty());
    const ModelCounts counts = verifyModels(packed);
    EXPECT_THAT(texts(counts.problems), IsEmpty());
    EXPECT_EQ(counts.tables, 1u);
    EXPECT_EQ(counts.files, 8u);
}
