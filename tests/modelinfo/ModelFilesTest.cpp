#include <sys/stat.h>

#include <atomic>
#include <functional>
#include <future>
#include <new>
#include <stdexcept>
#include <thread>

#include <gmock/gmock.h>

#include <dmf/ADMModelInfoHandlerFactory.h>
#include <dmf/ADMPlistModelInfoHandler.h>
#include <dmf/ADMXMLElementImp.h>
#include <dmf/ADMXMLModelInfoHandler.h>
#include <dmf/DMStringExtension.h>

#include "modelinfo/Database.h"
#include "modelinfo/ForeignParser.h"
#include "support/CpuTime.h"
#include "support/Repeated.h"

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

dmf::Value valueAt(const std::shared_ptr<ADMInfo>& root, std::string_view path)
{
    const auto nodes = root->infoForPath(path);
    return nodes.empty() ? dmf::Value() : nodes.front()->value();
}

} // namespace

TEST(ModelFormat, IsReadFromTheFirstTwoHundredBytes)
{
    using Factory = ADMModelInfoHandlerFactory;
    const std::string blanks(200, ' ');
    const std::pair<std::string, Factory::Format> cases[] = {
        {"<?xml version=\"1.0\"?><plist>", Factory::Format::propertyList},
        {"<?xml version=\"1.0\"?><Model>", Factory::Format::xml},
        {blanks.substr(0, 194) + "<plist", Factory::Format::propertyList},
        {blanks.substr(0, 195) + "<plist", Factory::Format::unknown},
        {"<?xml?>" + blanks + "<plist", Factory::Format::xml},
        {std::string("ab\0<plist", 9), Factory::Format::unknown},
        {"", Factory::Format::unknown},
    };
    for (const auto& [contents, format] : cases)
        EXPECT_EQ(Factory::infoFormatForData(dmf::Data::fromText(contents)), format) << contents;
}

TEST(ModelFiles, ThatCannotBeUsedGiveNoHandlerAndSayWhy)
{
    Database database;
    database.registerTable("T");
    database.addPlain("T", "plainXml", xml(""));
    database.addPlain("T", "wrongKey", "\x01\x02\x03 as deciphered with another key");
    database.addPlain("T", "empty", "");
    database.addPlain("T", "huge", "");
    std::filesystem::resize_file(database.fileOf("T", "huge"), 100 << 20);
    std::filesystem::create_directories(database.fileOf("T", "folder"));
    ::mkfifo(database.fileOf("T", "pipe").c_str(), 0600);

    const auto manager = ADMPrivateModelInfoManager::sharedManager();
    const auto problems = [&](std::optional<std::string_view> file) {
        EXPECT_EQ(manager->modelInfoHandlerForFile(file, "T"), nullptr);
        return database.takeLog();
    };
    EXPECT_THAT(problems("missing"), IsEmpty());
    EXPECT_THAT(problems("folder"), IsEmpty());
    EXPECT_THAT(problems("pipe"), IsEmpty());
    EXPECT_THAT(problems("/"), ElementsAre("E  ModelInfo: unknown real file name for file with name '/'."));
    EXPECT_THAT(problems("plainXml"),
                ElementsAre("W  ModelInfo: not encrypted contents of file 'plainXml' in 'T' table"));
    for (const std::string file : {"wrongKey", "empty"})
        EXPECT_THAT(problems(file),
                    ElementsAre("W  ModelInfo: unknown format of the model info file in 'T' table",
                                "E  ModelInfo: cannot get an info file handler for file '" + file + "' in 'T' table"));
    EXPECT_THAT(problems("huge"),
                ElementsAre("E  ModelInfo: the file 'huge' in 'T' table is larger than 16777216 bytes"));
    EXPECT_THAT(problems({}), ElementsAre("E  ModelInfo: model info manager cannot create a mode info handler for "
                                          "unknown file or table (file '(null)', table 'T')"));
}

TEST(ModelFiles, ThatDoNotParseAreToldOnceAndNotTriedAgain)
{
    Database database;
    const std::string deep = repeated("<a>", 10'000) + repeated("</a>", 10'000);
    for (const std::string& contents : {plist("<key>cut</key><str"), plist("<key>bad</key><string>\xff</string>")}) {
        const auto handler = ADMPlistModelInfoHandler::initWithData(dmf::Data::fromText(contents), "T");
        ASSERT_NE(handler->info(), nullptr);
        EXPECT_TRUE(handler->info()->value().isNull());
        EXPECT_THAT(database.takeLog(), ElementsAre(HasSubstr("E  ModelInfo: cannot parse a property list in 'T'")));
    }
    for (const std::string& contents : {xml("<cut").substr(0, 50), xml(deep)}) {
        const auto handler = ADMXMLModelInfoHandler::initWithData(dmf::Data::fromText(contents), "T");
        EXPECT_EQ(handler->info(), nullptr);
        EXPECT_EQ(handler->info(), nullptr);
        EXPECT_THAT(database.takeLog(), ElementsAre(HasSubstr("E  ModelInfo: cannot parse an XML document in 'T'")));
    }
}

TEST(ModelFiles, WhoseParserThrowsAreTriedAgainOnlyWhereMemoryRanShort)
{
    Database database;
    int calls = 0;
    ForeignParser parser(database.machine, [&](const dmf::Data& data) -> std::shared_ptr<ADMXMLElementImp> {
        ++calls;
        if (data.text().find("short") != std::string_view::npos && calls == 1)
            throw std::bad_alloc();
        if (data.text().find("odd") != std::string_view::npos)
            throw 7;
        if (data.text().find("exception") != std::string_view::npos)
            throw std::runtime_error("a reason");
        return std::make_shared<ADMXMLElementImp>("Model");
    });
    const auto handlerFor = [](const char* contents) {
        return ADMXMLModelInfoHandler::initWithData(dmf::Data::fromText(contents), "T");
    };
    const auto shortage = handlerFor("short");
    EXPECT_EQ(shortage->info(), nullptr);
    EXPECT_THAT(database.takeLog(), ElementsAre("E  ModelInfo: memory ran short while reading a model file"));
    EXPECT_NE(shortage->info(), nullptr);
    EXPECT_EQ(shortage->info(), shortage->info());
    EXPECT_EQ(calls, 2);
    for (const char* contents : {"odd", "exception"}) {
        const auto handler = handlerFor(contents);
        EXPECT_EQ(handler->info(), nullptr);
        EXPECT_EQ(handler->info(), nullptr);
    }
    EXPECT_EQ(calls, 4);
    EXPECT_THAT(database.takeLog(),
                ElementsAre("E  ModelInfo: cannot parse an XML document in 'T' table: the parser threw an unknown "
                            "exception",
                            "E  ModelInfo: cannot parse an XML document in 'T' table: a reason"));
}

TEST(PropertyListInheritance, MergesDictionariesAndRemovesKeys)
{
    using D = dmf::Dictionary;
    using A = dmf::Array;
    const auto merge = [](const D& child, const D& parent) {
        return ADMPlistModelInfoHandler::mergeModelInfo(child, parent);
    };
    const D parent{{"a", 1}, {"list", A{1, 2}}, {"sub", D{{"x", 1}, {"y", D{{"deep", 1}}}}}, {"z", "end"}};

    EXPECT_EQ(
        merge({{"a", 2}, {"b", 3}, {"list", A{}}, {"sub", D{{"y", D{{"own", 2}}}}}}, parent),
        (D{{"a", 2}, {"b", 3}, {"list", A{}}, {"sub", D{{"x", 1}, {"y", D{{"deep", 1}, {"own", 2}}}}}, {"z", "end"}}));
    // A dictionary on one side only: the child's entry is kept, whatever it is.
    EXPECT_EQ(merge({{"a", D{{"k", 1}}}, {"sub", "text"}}, parent)["a"], dmf::Value(D{{"k", 1}}));
    EXPECT_EQ(merge({{"a", D{{"k", 1}}}, {"sub", "text"}}, parent)["sub"], "text");

    // Own and inherited keys go, on the level on which the list stands, and so does the list.
    EXPECT_EQ(merge({{"own", 1},
                     {"removedKeys", A{"a", "list", "own", "missing", 7}},
                     {"sub", D{{"removedKeys", A{"x"}}, {"y", D{{"removedKeys", "no list"}}}}}},
                    parent),
              (D{{"sub", D{{"y", D{{"deep", 1}}}}}, {"z", "end"}}));
    // Where there is nothing to inherit on a level, its list stays what it is.
    EXPECT_EQ(merge({{"new", D{{"removedKeys", A{"k"}}, {"k", 1}}}}, {})["new"],
              dmf::Value(D{{"removedKeys", A{"k"}}, {"k", 1}}));
}

TEST(PropertyListInheritance, FollowsParentsOfItsTable)
{
    Database database;
    database.registerTable("P");
    database.add("P", "grand",
                 plist("<key>a</key><string>grand</string><key>b</key><string>grand</string>"
                       "<key>c</key><string>grand</string>"));
    database.add("P", "Folder/Parent",
                 plist("<key>Parent</key><string>GRAND</string><key>b</key><string>parent</string>"
                       "<key>removedKeys</key><array><string>c</string></array>"));
    database.add("P", "child", plist("<key>Parent</key><string>folder/parent</string><key>own</key><true/>"));
    database.add("P", "orphan", plist("<key>Parent</key><string>nobody</string><key>own</key><integer>1</integer>"));

    EXPECT_EQ(database.info("P", "Child")->value(),
              (dmf::Dictionary{{"Parent", "folder/parent"}, {"a", "grand"}, {"b", "parent"}, {"own", true}}));
    EXPECT_EQ(database.info("P", "orphan")->value(), (dmf::Dictionary{{"Parent", "nobody"}, {"own", 1}}));
    EXPECT_THAT(database.takeLog(), IsEmpty());
}

TEST(XmlInheritance, MergesRecordsExtendsListsAndStopsAtOverride)
{
    Database database;
    database.registerTable("X");
    database.add("X", "parent",
                 xml("<Text>parent</Text><More>parent</More>"
                     "<Record name='r'><A>1</A><Deep><B>2</B></Deep></Record>"
                     "<List><Item>3</Item><Item>4</Item></List>"
                     "<Closed name='c'><A>1</A></Closed>"));
    database.add("X", "child",
                 xml("<Parent>Parent</Parent><Text>child</Text>"
                     "<Record name='r'><A>own</A><Deep><C>3</C></Deep></Record>"
                     "<Record name='s'/>"
                     "<List><Item>1</Item><Item>2</Item></List>"
                     "<Closed name='c' override='true'><Z/></Closed>"));
    const auto root = database.info("X", "child");
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(valueAt(root, "Text"), "child");
    EXPECT_EQ(valueAt(root, "More"), "parent");
    EXPECT_EQ(valueAt(root, "Record[@name='r']"),
              (dmf::Dictionary{{"A", "own"}, {"Deep", dmf::Dictionary{{"B", "2"}, {"C", "3"}}}}));
    EXPECT_EQ(root->infoForPath("Record").size(), 2u);
    EXPECT_EQ(valueAt(root, "List"), (dmf::Array{"1", "2", "3", "4"}));
    EXPECT_EQ(valueAt(root, "Closed"), (dmf::Dictionary{{"Z", ""}}));

    // The parent's own tree is as it was.
    const auto parent = database.info("X", "parent");
    EXPECT_EQ(valueAt(parent, "List"), (dmf::Array{"3", "4"}));
    EXPECT_EQ(valueAt(parent, "Record"), (dmf::Dictionary{{"A", "1"}, {"Deep", dmf::Dictionary{{"B", "2"}}}}));
    EXPECT_THAT(database.takeLog(), IsEmpty());
}

TEST(XmlInheritance, AppendsTheParentWhereARootIsNoRecord)
{
    Database database;
    database.registerTable("X2");
    database.add("X2", "list", xml("<Item>1</Item><Item>2</Item>"));
    database.add("X2", "child", xml("<Parent>list</Parent><Item>own</Item>"));
    database.add("X2", "closed", "<?xml version='1.0'?><Model override='true'><Parent>list</Parent><Item/></Model>");
    database.add("X2", "ofList", xml("<Parent>properties</Parent><Item>own</Item>"));
    database.add("X2", "properties", plist("<key>Item</key><string>no element</string>"));

    EXPECT_EQ(database.info("X2", "child")->infoForPath("Item").size(), 3u);
    EXPECT_EQ(database.info("X2", "closed")->infoForPath("Item").size(), 1u);
    // A property list has no elements to inherit.
    EXPECT_EQ(database.info("X2", "ofList")->count(), 2u);
}

TEST(XmlInheritance, NeverChangesNodesThatItTookOver)
{
    Database database;
    database.registerTable("X3");
    // The second connection fits the first one, which the child takes over just before.
    database.add("X3", "parent", xml("<C type='usb' name='n'><A>1</A></C><C name='n'><B>2</B></C>"));
    database.add("X3", "child", xml("<Parent>parent</Parent><Own/>"));
    const auto child = database.info("X3", "child");
    const auto parent = database.info("X3", "parent");
    EXPECT_EQ(valueAt(child, "C[@type='usb']"), (dmf::Dictionary{{"A", "1"}, {"B", "2"}}));
    EXPECT_EQ(valueAt(parent, "C[@type='usb']"), (dmf::Dictionary{{"A", "1"}}));
    EXPECT_EQ(parent->infoForPath("C").size(), 2u);

    // Nor through an element of the child's own that both of the parent's fit.
    database.add("X3", "parent2", xml("<S><X><p/><q/></X></S><S x='1'><X><r/><s/></X></S>"));
    database.add("X3", "child2", xml("<Parent>parent2</Parent><S x='1'><own/></S>"));
    const auto child2 = database.info("X3", "child2");
    EXPECT_EQ(child2->infoForPath("S/X/*").size(), 4u);
    EXPECT_EQ(database.info("X3", "parent2")->infoForPath("S[not(@x)]/X/*").size(), 2u);
}

TEST(XmlInheritance, RefusesNullElements)
{
    using Handler = ADMXMLModelInfoHandler;
    const auto element = std::make_shared<ADMXMLElementImp>("e");
    EXPECT_EQ(Handler::mergeXMLElement(nullptr, element), nullptr);
    EXPECT_EQ(Handler::mergeXMLElement(element, nullptr), element);
    EXPECT_EQ(Handler::addXMLElements({element}, nullptr), nullptr);
    EXPECT_EQ(Handler::addXMLElements({nullptr}, element), element);
    EXPECT_EQ(element->count(), 0u);
}

namespace {

/// A record of `count` children made by `child` from their numbers.
std::shared_ptr<ADMXMLElement> recordOf(int count, const std::function<void(ADMXMLElementImp&, int)>& child)
{
    auto record = std::make_shared<ADMXMLElementImp>("r");
    for (int i = 0; i < count; ++i) {
        auto made = std::make_shared<ADMXMLElementImp>("E");
        child(*made, i);
        for (const char* name : {"A", "B"})
            made->addElement(std::make_shared<ADMXMLElementImp>(name));
        record->addElement(std::move(made));
    }
    return record;
}

} // namespace

TEST(XmlInheritance, TakesTimeInProportion)
{
    struct Case {
        const char* what;
        std::function<void(ADMXMLElementImp&, int)> child;
        std::function<void(ADMXMLElementImp&, int)> inherited;
    };
    const auto number = [](int i) { return std::to_string(i); };
    const Case cases[] = {
        {"none of one name fits",
         [&](auto& e, int i) {
             e.setAttributes({{"a", "x" + number(i)}, {"b", "1"}});
         },
         [&](auto& e, int i) {
             e.setAttributes({{"a", "y" + number(i)}, {"b", "1"}});
         }},
        {"each is taken over and then copied",
         [&](auto& e, int i) {
             e.setAttributes({{"a", "x" + number(i)}, {"b", "1"}});
         },
         [&](auto& e, int i) {
             e.setAttributes(i % 2 == 0 ? dmf::Dictionary{{"n", number(i)}, {"m", "1"}}
                                        : dmf::Dictionary{{"n", number(i - 1)}});
         }},
        {"each fits by some of its attributes",
         [&](auto& e, int i) {
             e.setAttributes({{"a", number(i)}, {"b", "1"}});
         },
         [&](auto& e, int i) {
             e.setAttributes({{"a", number(i)}});
         }},
        {"one is extended again and again",
         [&](auto& e, int i) {
             e.setAttributes({{"a", number(i)}});
         },
         [&](auto& e, int i) {
             e.setAttributes({{"a", "0"}, {"b", number(i)}});
         }},
    };
    for (const auto& [what, child, inherited] : cases) {
        double seconds[2] = {};
        for (const int size : {1'000, 8'000}) {
            const auto target = recordOf(size, child);
            const auto source = recordOf(size, inherited);
            const CpuTime used;
            ADMXMLModelInfoHandler::mergeXMLElement(target, source);
            seconds[size > 1'000] = used.seconds();
        }
        // Eight times as much: far below the sixty-four times of a merge that looks through all for each.
        EXPECT_LT(seconds[1], 30 * seconds[0] + 0.5) << what;
    }
}

TEST(ParentCircles, AreCutAtTheFileThatClosesThem)
{
    Database database;
    database.registerTable("C");
    database.add("C", "self", plist("<key>Parent</key><string>SELF</string><key>own</key><integer>1</integer>"));
    for (const auto& [name, parent] : {std::pair("a", "b"), std::pair("b", "c"), std::pair("c", "a")}) {
        const std::string file = name;
        database.add(
            "C", file,
            plist("<key>Parent</key><string>" + std::string(parent) + "</string><key>" + file + "</key><true/>"));
        database.add("C", "x" + file, xml("<Parent>x" + std::string(parent) + "</Parent><" + file + "/>"));
    }
    EXPECT_EQ(database.info("C", "self")->value(), (dmf::Dictionary{{"Parent", "SELF"}, {"own", 1}}));
    EXPECT_THAT(database.takeLog(), ElementsAre("E  ModelInfo: the file 'SELF' in 'C' table inherits from a file that "
                                                "names it as its parent; that file is used without inheritance"));

    EXPECT_EQ(database.info("C", "a")->value(),
              (dmf::Dictionary{{"Parent", "b"}, {"a", true}, {"b", true}, {"c", true}}));
    EXPECT_EQ(database.info("C", "c")->value(), (dmf::Dictionary{{"Parent", "a"}, {"c", true}}));
    EXPECT_EQ(database.info("C", "xa")->count(), 4u);
    EXPECT_EQ(database.info("C", "xc")->count(), 2u);
    EXPECT_EQ(database.takeLog().size(), 2u);
}

TEST(ParentCircles, DoNotHangThreadsThatEnterThemAtDifferentFiles)
{
    Database database;
    const auto rounds = std::async(std::launch::async, [&] {
        for (int round = 0; round < 50; ++round) {
            const std::string table = "R" + std::to_string(round);
            database.registerTable(table);
            for (const auto& [name, parent] : {std::pair("a", "b"), std::pair("b", "c"), std::pair("c", "a")})
                database.add(table, name,
                             plist("<key>Parent</key><string>" + std::string(parent) + "</string><key>" + name +
                                   "</key><true/>"));
            std::atomic<int> waiting = 3;
            {
                std::vector<std::jthread> threads;
                for (const char* name : {"a", "b", "c"})
                    threads.emplace_back([&, name] {
                        --waiting;
                        while (waiting > 0)
                            std::this_thread::yield();
                        EXPECT_TRUE(database.info(table, name)->value().asDictionary()->contains(name));
                    });
            }
            // Somewhere the circle is cut, once.
            std::size_t entries = 0;
            for (const char* name : {"a", "b", "c"})
                entries += database.info(table, name)->value().asDictionary()->size() - 1;
            EXPECT_EQ(entries, 6u);
        }
    });
    if (rounds.wait_for(30s) != std::future_status::ready)
        std::abort(); // the threads wait for each other
}

TEST(ParentCircles, ChainsWithoutEndTakeNoMoreThanSomeStack)
{
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "ThreadSanitizer follows 64 locks at a time at most; the chain holds one a file";
#endif
    Database database;
    database.registerTable("L");
    for (int i = 0; i < 600; ++i)
        database.add("L", std::to_string(i),
                     plist("<key>Parent</key><string>" + std::to_string(i + 1) + "</string><key>k" + std::to_string(i) +
                           "</key><true/>"));
    EXPECT_EQ(database.info("L", "0")->value().asDictionary()->size(), 1u + 256u);
    EXPECT_THAT(database.takeLog(), ElementsAre("E  ModelInfo: the file '256' in 'L' table ends a chain of too many "
                                                "parents; the file that names it is used without inheritance"));
}

TEST(Handlers, AreReadOnceByHoweverManyThreads)
{
    Database database;
    database.registerTable("H");
    database.add("H", "parent", xml("<A>1</A>"));
    database.add("H", "child", xml("<Parent>parent</Parent><B>2</B>"));
    std::vector<std::future<std::shared_ptr<ADMInfo>>> roots;
    for (int i = 0; i < 4; ++i)
        roots.push_back(std::async(std::launch::async, [&] {
            auto root = database.info("H", "child");
            EXPECT_EQ(root->value(), (dmf::Dictionary{{"A", "1"}, {"B", "2"}, {"Parent", "parent"}}));
            EXPECT_EQ(root->infoForPath("A | B").size(), 2u);
            return root;
        }));
    const auto first = roots.front().get();
    for (std::size_t i = 1; i < roots.size(); ++i)
        EXPECT_EQ(roots[i].get(), first);
}

TEST(Families, AreTheDecipheredNamesOfTheirFiles)
{
    Database database;
    for (const char* family : {"FamilyName/Aurora", "FamilyName/Rora 2", "FamilyName/Meridian"})
        database.add("DMF", family, xml(""));
    const auto folder = database.fileOf("DMF", "FamilyName");
    Database::write(folder / "README", "no enciphered name");
    Database::write(folder / "0011223344556677", "hexadecimal, but no enciphered name");
    database.add("DMF", "FamilyName/Folder/Below", xml(""));

    const auto stored = com_ql_dmf_dataFromHexadecimalRepresentation(folder.filename().string());
    EXPECT_EQ(ADMSecureData().decryptData(*stored, 2), dmf::Data::fromText("familyname"));

    ADMInfoFileManager manager(database.resources().string());
    EXPECT_THAT(manager.familyList(), testing::UnorderedElementsAre("aurora", "rora 2", "meridian", "folder"));
    EXPECT_EQ(manager.familyNameForModel("QL MERIDIAN M7"), "meridian");
    // Of two that occur the one that is listed first.
    const auto& list = manager.familyList();
    const auto first = std::find_if(list.begin(), list.end(),
                                    [](const std::string& family) { return family == "aurora" || family == "rora 2"; });
    EXPECT_EQ(manager.familyNameForModel("Aurora 2"), *first);
    database.add("DMF", "FamilyName/Vega", xml(""));
    EXPECT_EQ(manager.familyNameForModel("Vega 1"), std::nullopt) << "the folder is read once";
}
