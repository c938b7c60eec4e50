#include <gmock/gmock.h>

#include <dmf/ADMCommunicationInfo.h>
#include <dmf/ADMFunctionalInfo.h>
#include <dmf/ADMModelInfoImp.h>
#include <dmf/ADMPlistInfoElement.h>
#include <dmf/ADMProtocolInfo.h>
#include <dmf/ADMTransportInfo.h>
#include <dmf/ADMXMLElementImp.h>
#include <dmf/ADMXMLParserFactory.h>
#include <dmf/DMModelInfoExtension.h>

#include "modelinfo/Database.h"
#include "tools/dmf/ModelPack.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

/// The sample models as the library's own table.
struct SampleDatabase : Database {
    SampleDatabase()
    {
        const auto packed = dmf::tool::packModels(std::filesystem::path(DMF_SOURCE_FOLDER) / "models", resources());
        EXPECT_THAT(packed.problems, IsEmpty());
    }
};

std::vector<std::string> implementors(const ADMFunctionalInfo::CommunicationInfos& infos)
{
    std::vector<std::string> names;
    for (const auto& info : infos)
        names.push_back(info->implementorClassName().value_or("?"));
    return names;
}

} // namespace

TEST(ModelNames, AreNormalized)
{
    const std::pair<const char*, const char*> cases[] = {
        {"Aurora 210", "Aurora 210"},      {"ql Aurora 210 (USB)", "Aurora 210"},   {"Ql ql 9", "ql 9"},
        {"Meridian M7_BT", "Meridian M7"}, {"Meridian M7_bt 2 (x)", "Meridian M7"}, {"aql  (b", "a"}};
    for (const auto& [name, normalized] : cases)
        EXPECT_EQ(ADMModelInfoImp::normalizeModelName(name), normalized) << name;
}

TEST(ModelSearch, InAProgramsTableGoesFromTheModelToTheDefaults)
{
    Database database;
    database.registerTable("Own");
    const auto answer = [] { return ADMModelInfoImp("QL M 1 (USB)").valueForInfoPath("from", "Own"); };
    const auto file = [](std::string_view from) {
        return plist("<key>from</key><string>" + std::string(from) + "</string>");
    };

    EXPECT_TRUE(answer().isNull());
    EXPECT_THAT(database.takeLog(), ElementsAre("E  ModelInfo: not found Own model info for device 'QL M 1 (USB)'"));
    // Each one is preferred to those before it.
    for (const char* name : {"ModelName/Default", "ModelName/M 1", "Default", "M 1"}) {
        database.add("Own", name, file(name));
        EXPECT_EQ(answer(), name);
    }
    // What does not parse as XML gives way to the next; a property list does not.
    database.registerTable("Broken");
    database.add("Broken", "M 1", xml("<"));
    database.add("Broken", "Default", file("Default"));
    EXPECT_EQ(ADMModelInfoImp("M 1").valueForInfoPath("from", "Broken"), "Default");
}

TEST(ModelSearch, InTheLibrarysTableGoesFromTheModelByItsFamilyToTheDefault)
{
    Database database;
    database.add("DMF", "FamilyName/Aurora", plist("<key>from</key><string>family</string>"));
    database.add("DMF", "ModelName/Aurora 9", plist("<key>from</key><string>model</string>"));
    database.add("DMF", "ModelName/Default", plist("<key>from</key><string>default</string>"));
    database.add("DMF", "Default", plist("<key>from</key><string>not used</string>"));
    const auto answer = [](std::string_view model) {
        return ADMModelInfoImp(model).valueForInfoPath("from", kDMFTableName);
    };
    EXPECT_EQ(answer("QL Aurora 9"), "model");
    EXPECT_EQ(answer("QL Aurora 8"), "family");
    EXPECT_THAT(database.takeLog(), IsEmpty());
    EXPECT_EQ(answer("QL Vega"), "default");
    EXPECT_THAT(database.takeLog(), ElementsAre("D  ModelInfo: unknown family name of device 'vega'"));
}

TEST(ModelSearch, OpensTheLibrarysTableToItsKeyOnly)
{
    Database database;
    database.registerTable("DMFPrivate");
    database.add("DMF", "ModelName/Default", plist("<key>from</key><string>library</string>"));
    database.add("DMFPrivate", "Default", plist("<key>from</key><string>program</string>"));
    ADMModelInfoImp info("M");
    EXPECT_EQ(info.valueForInfoPath("from", kDMFTableName), "library");
    EXPECT_EQ(info.valueForInfoPath("from", std::string(kDMFTableName)), "program");
    EXPECT_EQ(info.infoFromTable(kDMFKey), nullptr);
}

TEST(ModelSearch, LooksAgainAfterATableMoved)
{
    Database database;
    database.registerTable("Moved");
    database.registerTable("Still");
    for (const char* table : {"Moved", "Still"})
        database.add(table, "Default", plist("<key>from</key><string>old</string>"));
    ADMModelInfoImp info("M");
    ASSERT_EQ(info.valueForInfoPath("from", "Moved"), "old");
    const auto still = info.infoFromTable("Still");

    const auto place = database.location("new");
    Database::write(place / "Moved" / ADMInfoFileManager().realFileNameForFile("M").value(),
                    Database::enciphered(plist("<key>from</key><string>new</string>")));
    ASSERT_TRUE(ADMModelInfoManager::sharedManager()->registerTable("Moved", place.string()));
    EXPECT_EQ(info.valueForInfoPath("from", "Moved"), "new");
    EXPECT_EQ(info.infoFromTable("Still"), still);
}

TEST(SampleModels, DescribeThemselvesAndTheirChannels)
{
    SampleDatabase database;
    ADMModelInfoImp aurora("QL Aurora 450n");
    EXPECT_EQ(aurora.familyName(), "Aurora");
    EXPECT_EQ(aurora.modelCodeName(), "daybreak-net");
    ADMModelInfoImp folio("Folio 12");
    EXPECT_EQ(folio.utilitySignature(), std::nullopt) << "removed";
    // A property list has no names to collect.
    EXPECT_THAT(folio.availableFunctionalInterfacesForServiceName("printer"), IsEmpty());
    EXPECT_EQ(ADMModelInfoImp("Nobody's 1").familyName(), std::nullopt);

    const auto transport = ADMModelInfoImp("Meridian M7").transportInfo();
    ASSERT_NE(transport, nullptr);
    const auto ip = transport->ioChannelInfos("IP");
    ASSERT_EQ(ip.size(), 2u);
    EXPECT_EQ(ADMTransportInfo::port(ip[0]), 9290);
    EXPECT_EQ(ADMTransportInfo::ianaService(ip[1]), "pdl-datastream");
}

TEST(SampleModels, ListInterfacesAndServices)
{
    SampleDatabase database;
    ADMModelInfoImp m7("QL Meridian M7");
    EXPECT_THAT(m7.availableFunctionalInterfacesForServiceName("Scanner"), ElementsAre("scan"));
    EXPECT_THAT(m7.availableProtocolsForFunctionalInterface("SCAN"), ElementsAre("feeder", "flatbed"));
    ADMModelInfoImp aurora("Aurora 7");
    EXPECT_EQ(aurora.familyName(), "Aurora") << "by its family file";
    EXPECT_THAT(aurora.availableFunctionalInterfacesForServiceName("printer"), ElementsAre("print", "supplies"));
    EXPECT_THAT(database.takeLog(), IsEmpty());

    EXPECT_THAT(aurora.availableFunctionalInterfacesForServiceName("Fax"), IsEmpty());
    EXPECT_EQ(aurora.functionalInfo("com.ql.fax.send", "IP"), nullptr);
    EXPECT_THAT(database.takeLog(),
                ElementsAre("D  ModelInfo: the model info file of device 'Aurora 7' doesn't contain functional "
                            "interfaces for 'Fax' service",
                            "D  ModelInfo: the model info file of device 'Aurora 7' doesn't contain the functional "
                            "info 'com.ql.fax.send' for 'IP' connection"));
}

TEST(SampleModels, OrderServicesByConnectionAndProtocol)
{
    SampleDatabase database;
    ADMModelInfoImp model("QL Aurora 450n (Network)");
    EXPECT_EQ(model.functionalInfo("print", "IP"), nullptr) << "a name without a dot names no interface";
    const auto print = model.functionalInfo("com.ql.Printer.Print", "IP");
    ASSERT_NE(print, nullptr);
    EXPECT_EQ(model.functionalInfo("com.ql.Printer.Print", "IP"), print);
    EXPECT_NE(model.functionalInfo("com.ql.Printer.Print", "USB"), print);

    const std::vector<std::string> general{"QLRawPrintService", "QLIPPPrintService"};
    EXPECT_EQ(implementors(print->communicationInfoList()), general);
    EXPECT_THAT(implementors(print->prefferedCommunicationInfosForProtocolName("PDF")),
                ElementsAre("QLIPPPrintService", "QLRawPrintService"));
    EXPECT_EQ(implementors(print->prefferedCommunicationInfosForProtocolName("AUR")), general);
    EXPECT_EQ(print->communicationInfoList()[1], print->communicationInfoNamed("ipp"));
    const auto protocol = print->communicationInfoNamed("ipp")->protocolInfoNamed("PDF");
    ASSERT_NE(protocol, nullptr);
    EXPECT_THAT(protocol->supportedFeatures(), ElementsAre(Pair("duplex", ""), Pair("version", "1.7")));
    EXPECT_THAT(protocol->supportedPropertiesForFeature("duplex"),
                ElementsAre(Pair("default", "long-edge"), Pair("modes", "none,long-edge,short-edge")));
    EXPECT_THAT(protocol->supportedPropertiesForFeature("staple"), IsEmpty());

    // What the small one keeps out.
    ADMModelInfoImp small("Aurora 210");
    EXPECT_THAT(small.functionalInfo("printer.print", "ip")->communicationInfoList(), IsEmpty());
    EXPECT_EQ(small.functionalInfo("printer.print", "usb")->communicationInfoList().size(), 1u);
}

TEST(ChannelEntries, ReadNumbersAsFarAsTheyGo)
{
    ADMXMLElementImp node("Channel");
    const std::shared_ptr<ADMInfo> channel(&node, [](ADMInfo*) {});
    const std::pair<const char*, std::int32_t> cases[] = {{"9100", 9100},
                                                          {" +80 ", 80},
                                                          {"-1x", -1},
                                                          {"0x10", 0},
                                                          {"port", 0},
                                                          {"99999999999", INT32_MAX},
                                                          {"-99999999999", INT32_MIN}};
    for (const auto& [text, number] : cases) {
        node.setAttributes({{"port", text}});
        EXPECT_EQ(ADMTransportInfo::port(channel), number) << text;
    }
    EXPECT_EQ(ADMTransportInfo::port(nullptr), 0);
}

TEST(Alerts, FitReportsThatHoldAllTheirTexts)
{
    const auto alert = ADMXMLParserFactory::defaultFactory().defaultParser()->parseData(
        dmf::Data::fromText("<Alert><Entry name='code'>7</Entry><Entry name='state'>jam</Entry></Alert>"), nullptr);
    const std::shared_ptr<ADMInfo> jam = ADMPlistInfoElement::plistInfoWithName({}, "jam");
    using D = dmf::Dictionary;
    EXPECT_TRUE(com_ql_dmf_matchesModelInfoAlert(D{{"code", 7}, {"state", "jam"}}, alert));
    EXPECT_TRUE(
        com_ql_dmf_matchesModelInfoAlert(D{{"code", "7"}, {"more", 1}, {"state", dmf::Value::ofObject(jam)}}, alert));
    EXPECT_FALSE(com_ql_dmf_matchesModelInfoAlert(D{{"code", 7}, {"state", "door"}}, alert));
    EXPECT_FALSE(com_ql_dmf_matchesModelInfoAlert(D{{"code", 7}, {"other", "jam"}}, alert));
    EXPECT_FALSE(com_ql_dmf_matchesModelInfoAlert(D{{"code", 7}, {"state", "jam"}}, nullptr));
}
