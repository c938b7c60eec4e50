#include <dmf/ADMXMLElementImp.h>
#include <dmf/ADMXMLTreeBuilder.h>
#include <dmf/DMKeys.h>
#include <dmf/DMXMLExtension.h>

#include <thread>

#include <gtest/gtest.h>

#include "support/CpuTime.h"
#include "support/LogCapture.h"
#include "support/Repeated.h"

using dmf::Array;
using dmf::Dictionary;
using dmf::Value;
using Element = std::shared_ptr<ADMXMLElementImp>;

namespace {

Element element(std::string name, Dictionary attributes = {}, std::vector<std::shared_ptr<ADMXMLNode>> children = {})
{
    auto result = std::make_shared<ADMXMLElementImp>(std::move(name));
    result->setAttributes(std::move(attributes));
    for (auto& child : children)
        result->addElement(std::move(child));
    return result;
}

Element leaf(std::string name, std::string text, Dictionary attributes = {})
{
    return element(std::move(name), std::move(attributes), {ADMXMLNodeImp::textNodeWithContent(std::move(text))});
}

template <class Nodes>
std::string texts(const Nodes& nodes)
{
    std::string result;
    for (const auto& node : nodes)
        result += std::dynamic_pointer_cast<ADMXMLElementImp>(node)->stringRepresentation();
    return result;
}

} // namespace

TEST(XmlElement, RecordsAndListsAreToldApart)
{
    struct Case {
        Element node;
        bool leaf, matrix, array;
        Value value;
    };
    const Case cases[] = {
        {element("empty"), true, false, false, Value()},
        {leaf("text", "t"), true, false, false, "t"},
        {element("list", {}, {leaf("Item", "1"), element("Item"), leaf("Item", "2")}), false, false, true,
         Array{"1", "2"}},
        {element("record", {}, {leaf("A", "1"), element("B")}), false, true, false, Dictionary{{"A", "1"}, {"B", ""}}},
        {element("named", {}, {leaf("S", "1", {{"name", "x"}}), leaf("S", "2", {{"name", "y"}})}), false, true, false,
         Dictionary{{"Snamex", "1"}, {"Snamey", "2"}}},
        {element("neither", {}, {leaf("A", "1"), leaf("A", "2"), leaf("B", "3")}), false, false, false, Value()},
        {element("nested", {}, {element("L", {}, {leaf("I", "1"), leaf("I", "2")})}), false, true, false,
         Dictionary{{"L", Array{"1", "2"}}}},
    };
    for (const auto& [node, isLeaf, isMatrix, isArray, value] : cases) {
        EXPECT_EQ(node->isLeaf(), isLeaf) << *node->name();
        EXPECT_EQ(node->isMatrix(), isMatrix) << *node->name();
        EXPECT_EQ(node->isArray(), isArray) << *node->name();
        EXPECT_EQ(node->value(), value) << *node->name();
        EXPECT_EQ(node->userInfo(), value) << *node->name(); // kept, unless there is none
    }
}

TEST(XmlElement, ChildrenAreFoundByNameAttributesAndIdentifier)
{
    const auto print = leaf("Service", "print", {{"name", "Print"}, {"type", "data"}});
    const auto scan = leaf("Service", "scan", {{"name", "Scan"}});
    const auto again = leaf("Service", "again", {{"name", "Scan"}});
    const auto root = element("r", {}, {ADMXMLNodeImp::textNodeWithContent("t"), print, scan, again, leaf("B", "b")});

    EXPECT_EQ(root->infoNamed("Service"), print);
    EXPECT_EQ(root->infoNamed("Service", "Print", "name"), print); // no identifier of that kind: the first that fits
    EXPECT_EQ(root->infoNamed("Service", "Scan", "name"), again);  // the later one took the identifier over
    EXPECT_EQ(root->infoNamed("Service", Dictionary{{"type", "data"}}), print);
    EXPECT_EQ(root->infoNamed("Service", Dictionary{{"type", "data"}, {"name", "Scan"}}), nullptr);
    EXPECT_EQ(root->infoNamed("Service", 2), again);
    EXPECT_EQ(root->infoNamed("Service", 3), nullptr);
    EXPECT_EQ(root->count(), 4u);

    root->removeChildAtIndex(3);
    EXPECT_EQ(root->infoNamed("Service", "Scan", "name"), scan); // found by its identifier again
    root->removeAllElements();
    EXPECT_EQ(root->infoNamed("Service", Dictionary()), nullptr);
    EXPECT_EQ(root->stringRepresentation(), "<r>t</r>");
}

TEST(XmlElement, IdentifiersJoinNamesAndAttributesInFoldedOrderAndLeavesConvertTheirText)
{
    EXPECT_EQ(ADMXMLElementImp::identifierNamed("n", Dictionary{{"B", "2"}, {"a", "1"}, {"C", "3"}}), "na1B2C3");
    const auto node = element("n", {{"a", "1"}});
    (void)node->elementIdentifier();
    node->setAttributes({});
    EXPECT_EQ(node->elementIdentifier(), "na1"); // computed once
    EXPECT_EQ(leaf("n", " 2.5 mm")->numberValue(), 2.5);
    EXPECT_EQ(leaf("b", "no base64!")->dataValue()->text(), "no base64!");
    EXPECT_FALSE(element("n")->stringValue() || element("n")->dataValue() || element("n")->dateValue());

    const auto custom = leaf("n", "text");
    custom->setUserInfo("mine");
    EXPECT_EQ(custom->stringValue(), "mine");
}

TEST(XmlElement, PathsAreXPath)
{
    const auto root = element("r", {},
                              {element("a", {{"n", "1"}}, {leaf("x", "a1x")}),
                               element("a", {{"n", "2"}}, {leaf("x", "a2x"), leaf("y", "a2y")}), leaf("b", "b")});
    const std::pair<const char*, const char*> cases[] = {
        {"a[x='a1x']/x | b", "<x>a1x</x><b>b</b>"},
        {"/r/a[@n=\"2\"]/y", "<y>a2y</y>"},
        {"a[", ""},
    };
    for (const auto& [path, expected] : cases)
        EXPECT_EQ(texts(root->infoForPath(path)), expected) << path;
    EXPECT_EQ(root->infoForPath(".").at(0), root);
    // The declaration of a namespace is no attribute, however the path is spelled.
    const auto declaring = element("r", {}, {element("x:q", {{"xmlns", "d"}, {"xmlns:x", "u"}})});
    for (const char* path : {"x:q[@xmlns='d']", "./x:q[@xmlns='d']", "x:q[@xmlns:x='u']", "./x:q[@xmlns:x='u']"})
        EXPECT_TRUE(declaring->infoForPath(path).empty()) << path;
    EXPECT_EQ(declaring->infoForPath("./x:q").size(), 1u);
    // Changes below show at once.
    std::dynamic_pointer_cast<ADMXMLElementImp>(root->infoNamed("b"))->addElement(leaf("y", "new"));
    EXPECT_EQ(texts(root->infoForPath("//b/y")), "<y>new</y>");
}

TEST(XmlElement, CopiesAreDeepAndCompareEqual)
{
    const auto root = element("p:r", {{"xmlns:p", "u\"<"}, {"xmlns", "d"}, {"k", "v"}},
                              {ADMXMLNodeImp::textNodeWithContent("a & b"), element("c", {}, {leaf("d", "1")})});
    EXPECT_EQ(root->stringRepresentation(),
              R"(<p:r k="v" xmlns="d" xmlns:p="u&quot;&lt;">a &amp; b<c><d>1</d></c></p:r>)");
    EXPECT_EQ(root->namespaces(), (Dictionary{{"", "d"}, {"p", "u\"<"}}));

    const auto copy = root->copy();
    EXPECT_TRUE(copy->isACopyOf(*root) && root->isACopyOf(*copy));
    EXPECT_NE(copy->children().at(1), root->children().at(1));
    std::dynamic_pointer_cast<ADMXMLElementImp>(copy->children().at(1))->addElement(leaf("d", "2"));
    EXPECT_FALSE(root->isACopyOf(*copy));
    EXPECT_FALSE(element("a", {{"k", "1"}})->isACopyOf(*element("a", {{"k", "2"}})));
}

TEST(XmlElement, TreesMayBeDeeperThanTheStack)
{
    const auto deepOf = [](int depth, bool isTwice) {
        auto deep = leaf("bottom", "t");
        for (int i = 0; i < depth; ++i)
            deep = isTwice ? element("e", {}, {deep, deep}) : element("e", {}, {deep});
        return deep;
    };
    deepOf(200'000, true).reset(); // a stack that overflows would end the program

    HostFixture machine;
    machine.writeFile(kDMLogConfigPath, "debug");
    const LogCapture log(machine);
    const auto deep = deepOf(200'000, false);
    const auto copy = deep->copy();
    EXPECT_TRUE(copy->isACopyOf(*deep));
    EXPECT_EQ(deep->stringRepresentation().size(), 200'000u * 7 + std::string_view("<bottom>t</bottom>").size());
    EXPECT_EQ(texts(deep->infoForPath("//bottom")), "<bottom>t</bottom>");
    EXPECT_EQ(deep->value(), Value());
    EXPECT_EQ(log.lines().size(), 1u);

    // Nor does it help to ask from the bottom up: values are as deep as documents at most.
    auto node = leaf("bottom", "t");
    std::size_t height = 0;
    for (; height < 1'000 && !node->value().isNull(); ++height)
        node = element("e", {}, {std::move(node)});
    EXPECT_EQ(height, dmf::kXmlMaximumDepth + 1);
}

TEST(XmlElement, WhatOthersHoldOfADyingTreeStaysWhole)
{
    /// Gets hold of another node when the one that it is kept in goes.
    struct Heir {
        std::weak_ptr<ADMXMLElementImp> coveted;
        Element& inherited;
        explicit Heir(Element& to) : inherited(to) {}
        ~Heir()
        {
            if (auto got = coveted.lock())
                inherited = got;
        }
    };
    // Whichever of the two goes first gets hold of the other, wherever that stands then.
    Element inherited;
    auto first = element("e", {}, {leaf("a", "1")});
    auto second = element("e", {}, {leaf("a", "1")});
    for (const auto& [holder, coveted] : {std::pair(first, second), std::pair(second, first)}) {
        auto heir = std::make_shared<Heir>(inherited);
        heir->coveted = coveted;
        holder->setUserInfo(Value::ofObject(std::move(heir)));
    }
    auto root = element("r", {}, {element("x", {}, {first}), element("y", {}, {second})});
    EXPECT_TRUE(first->infoNamed("a") && second->infoNamed("a"));
    first.reset();
    second.reset();
    root.reset();
    ASSERT_TRUE(inherited);
    EXPECT_EQ(inherited->stringRepresentation(), "<e><a>1</a></e>");
    EXPECT_TRUE(inherited->infoNamed("a"));

    // Nor has one that is asked for while the tree dies lost what is below it, on whichever thread that is.
    for (int round = 0; round < 2'000; ++round) {
        const auto shared = element("shared", {}, {element("a", {}, {leaf("b", "1"), leaf("c", "2")})});
        std::weak_ptr<ADMXMLNode> watched = shared->children().at(0);
        auto dying = element("r", {}, {element("x", {}, {shared->children().at(0)}), shared->children().at(0)});
        shared->removeChildren();
        std::thread other([&] {
            const auto got = std::dynamic_pointer_cast<ADMXMLElementImp>(watched.lock());
            EXPECT_TRUE(!got || got->stringRepresentation() == "<a><b>1</b><c>2</c></a>");
        });
        dying.reset();
        other.join();
        EXPECT_TRUE(watched.expired());
    }

    // Parsed nodes lie next to each other; each is good for itself, on any thread.
    ADMXMLTreeBuilder builder;
    ASSERT_TRUE(dmf::readXml("<r><a>1</a><b><c>2</c></b></r>", builder));
    auto tree = builder.takeRoot();
    std::shared_ptr<ADMInfo> kept = tree->infoNamed("b");
    std::weak_ptr<ADMXMLElementImp> gone = tree;
    std::thread([owned = std::move(tree)]() mutable { owned.reset(); }).join();
    EXPECT_TRUE(gone.expired());
    EXPECT_EQ(kept->infoNamed("c")->stringValue(), "2");
}

TEST(XmlElement, TextsThatAreHeldForTheirElementsAreChildrenLikeOthers)
{
    const auto parsed = [](std::string_view text) {
        ADMXMLTreeBuilder builder;
        EXPECT_TRUE(dmf::readXml(text, builder));
        return builder.takeRoot();
    };
    const auto held = [&] { return parsed("<r>text</r>"); };
    const auto root = held();
    EXPECT_TRUE(root->isLeaf());
    EXPECT_EQ(root->content(), "text");
    EXPECT_EQ(root->copy()->children().at(0)->content(), "text");
    EXPECT_TRUE(root->isACopyOf(*leaf("r", "text")));
    EXPECT_FALSE(root->isACopyOf(*element("r")));
    ASSERT_EQ(root->children().size(), 1u);
    EXPECT_EQ(root->children().at(0), root->children().at(0));
    root->children().at(0)->setContent("changed");
    EXPECT_EQ(root->stringValue(), "changed");
    EXPECT_EQ(root->stringRepresentation(), "<r>changed</r>");

    const auto added = held();
    added->addElement(leaf("a", "1"));
    EXPECT_EQ(added->stringRepresentation(), "<r>text<a>1</a></r>");
    const auto contentSet = held();
    contentSet->setContent("other");
    EXPECT_EQ(contentSet->stringValue(), "text") << "a leaf's value is its child's";
    EXPECT_EQ(contentSet->content(), "other");
    const auto removed = held();
    removed->removeChildAtIndex(0);
    EXPECT_EQ(removed->stringRepresentation(), "<r/>");
    const auto emptied = held();
    emptied->removeChildren();
    EXPECT_EQ(emptied->stringRepresentation(), "<r/>");
    EXPECT_EQ(texts(parsed("<r><a>1</a><b/>two</r>")->infoForPath("a[.='1']")), "<a>1</a>");
    EXPECT_EQ(parsed("<r>one<b/>two</r>")->stringRepresentation(), "<r>one<b/>two</r>");

    // The first to ask makes it, for all threads.
    for (int round = 0; round < 200; ++round) {
        const auto asked = held();
        std::shared_ptr<ADMXMLNode> first, second;
        std::thread other([&] { first = asked->children().at(0); });
        EXPECT_EQ(asked->value(), "text");
        second = asked->children().at(0);
        other.join();
        EXPECT_EQ(first, second);
    }
}

TEST(XmlElement, ManyAttributesInAnyOrderTakeTimeInProportion)
{
    double seconds[2] = {};
    for (const int size : {2'000, 16'000}) {
        std::vector<std::string> names;
        for (int i = size; i > 0; --i)
            names.push_back("a" + std::to_string(1'000'000 + i));
        std::vector<dmf::XmlReceiver::Attribute> attributes;
        for (const auto& name : names)
            attributes.push_back({name, "v"});
        const CpuTime used;
        ADMXMLTreeBuilder builder;
        builder.beginElement("r", {});
        builder.beginElement("e", attributes);
        builder.endElement();
        builder.endElement();
        const auto root = builder.takeRoot();
        EXPECT_EQ(texts(root->infoForPath("//*[@a1000007]")).size(), static_cast<std::size_t>(size) * 13 + 4);
        seconds[size > 2'000] = used.seconds();
    }
    EXPECT_LT(seconds[1], 30 * seconds[0] + 0.3);
}

TEST(XmlExtension, ErrorsTellWhatWasWrongWithTheTextOrItsRepair)
{
    const auto reasonOf = [](std::string_view text, bool isRepaired) {
        dmf::Error error;
        EXPECT_EQ(com_ql_dmf_DocumentWithXMLString(text, &error) != nullptr, isRepaired) << text;
        return error.userInfo().string("DMErrorDescription").value_or("none");
    };
    dmf::Error first;
    EXPECT_FALSE(dmf::XmlDocument::parse("<a><b></a>", dmf::kXmlNoOptions, &first));
    EXPECT_EQ(reasonOf("<a><b></a>", true), first.userInfo().string("DMErrorDescription"));
    EXPECT_EQ(reasonOf("<a/>", true), "none");
    // Two roots cannot be repaired: what the second attempt stumbled over counts.
    dmf::Error second;
    const std::string hopeless = "text <a/>\n<b/>";
    EXPECT_FALSE(dmf::XmlDocument::parse(hopeless, dmf::kXmlNoOptions, &first));
    EXPECT_FALSE(dmf::XmlDocument::parse(hopeless, dmf::kXmlTidy, &second));
    EXPECT_NE(first, second);
    EXPECT_EQ(reasonOf(hopeless, false), second.userInfo().string("DMErrorDescription"));
    EXPECT_FALSE(com_ql_dmf_DocumentWithXMLString(hopeless, nullptr));
}

TEST(XmlExtension, SettingAValueLeavesOneChild)
{
    const auto document = dmf::XmlDocument::withRootElement("r");
    const auto root = document->rootElement();
    DMFSetStringValue(root, "1", "a");
    DMFSetStringValue(root, "2", "a");
    DMFSetStringValue(root, std::nullopt, "a");
    DMFSetStringValue(root, "3", std::nullopt);
    DMFSetStringValue(root, "3", "no name");
    DMFSetStringValue(root, "\x01", "b");
    EXPECT_EQ(root.xmlString(), "<r><a>2</a></r>");
}
