#include <dmf/ADMXMLElementImp.h>
#include <dmf/ADMXMLTreeBuilder.h>
#include <dmf/DMXMLExtension.h>

#include <thread>

#include <gtest/gtest.h>

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
    // The declaration of a namespace is no attribute.
    EXPECT_TRUE(element("r", {}, {element("a", {{"xmlns", "d"}}, {})})->infoForPath("a[@xmlns='d']").empty());
    // Changes below show at once.
    std::dynamic_pointer_cast<ADMXMLElementImp>(root->infoNamed("b"))->addElement(leaf("y", "new"));
    EXPECT_EQ(texts(root->infoForPath("//b/y")), "<y>new</y>");
}

TEST(XmlElement, CopiesAreDeepAndCompareEqualAndDeepTreesEndWithoutRecursion)
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

    for (const bool isTwice : {false, true}) {
        auto deep = element("e");
        for (int i = 0; i < 200'000; ++i)
            deep = isTwice ? element("e", {}, {deep, deep}) : element("e", {}, {deep});
        deep.reset(); // a stack that overflows would end the program
    }
}

TEST(XmlElement, WhatOthersHoldOfADyingTreeStaysWhole)
{
    /// Gets hold of another node when the one that it is kept in goes.
    struct Heir {
        std::weak_ptr<ADMXMLElementImp> coveted;
        Element& inherited;
        explicit Heir(Element& to) : inherited(to) {}
        ~Heir() { inherited = coveted.lock(); }
    };
    Element inherited;
    auto heir = std::make_shared<Heir>(inherited);
    auto first = element("first", {}, {leaf("a", "1")});
    auto second = element("second", {}, {leaf("b", "2")});
    heir->coveted = first;
    second->setUserInfo(Value::ofObject(std::move(heir)));
    auto root = element("r", {}, {first, second});
    EXPECT_TRUE(first->infoNamed("a"));
    first.reset();
    second.reset();
    root.reset();
    ASSERT_TRUE(inherited);
    EXPECT_EQ(inherited->stringRepresentation(), "<first><a>1</a></first>");
    EXPECT_TRUE(inherited->infoNamed("a"));

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
