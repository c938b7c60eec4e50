#include <dmf/ADMPlistInfoElement.h>

#include <dmf/platform/PropertyList.h>

#include <cmath>
#include <stdexcept>
#include <thread>

#include <gtest/gtest.h>

using dmf::Array;
using dmf::Date;
using dmf::Dictionary;
using dmf::Value;

namespace {

std::shared_ptr<ADMPlistInfoElement> plistElement(Value info)
{
    return ADMPlistInfoElement::plistInfoWithName("node", std::move(info));
}

} // namespace

TEST(PlistInfoElement, DictionariesGoByNameAndArraysByIndex)
{
    const auto dictionary = plistElement(Dictionary{{"A", "a"}, {"B", Array{}}});
    EXPECT_EQ(dictionary->infoNamed("A", 7)->stringValue(), "a");
    EXPECT_EQ(dictionary->infoNamed("A", "other", "name")->stringValue(), "a");
    EXPECT_EQ(dictionary->infoNamed(std::nullopt, 0), nullptr);

    const auto array = plistElement(Array{1, Value(), "x"});
    EXPECT_EQ(array->infoNamed("ignored", 2)->stringValue(), "x");
    EXPECT_EQ(array->infoNamed(std::nullopt, 1), nullptr);
    EXPECT_EQ(array->infoNamed(std::nullopt, dmf::kNotFound), nullptr);
    EXPECT_EQ(array->infoNamed("x"), nullptr);
    EXPECT_THROW((void)array->infoNamed(std::nullopt, 3), std::out_of_range);
    EXPECT_EQ(array->count(), 2u); // what is null is no child

    const auto child =
        plistElement(Dictionary{{"list", Array{Dictionary{{"k", "v"}}}}})->infoNamed("list")->allInfos().at(0);
    EXPECT_EQ(child->infoNamed("k")->stringValue(), "v"); // though its parent has gone
}

TEST(PlistInfoElement, PathsAreKeysAndNothingElse)
{
    const auto root = plistElement(Dictionary{
        {"A", Dictionary{{"B", "found"}, {"", "blank"}}}, {"L", Array{Dictionary{{"B", "in a list"}}}}, {"", "empty"}});
    const std::pair<const char*, std::optional<std::string>> cases[] = {
        {"A/B", "found"},      {"A/", "blank"},        {"", "empty"},          {"L/0", std::nullopt},
        {"L/B", std::nullopt}, {"A/B/", std::nullopt}, {"/A/B", std::nullopt}, {"A//B", std::nullopt}};
    for (const auto& [path, expected] : cases) {
        const auto found = root->infoForPath(path);
        ASSERT_EQ(found.size(), expected ? 1u : 0u) << path;
        if (expected) {
            EXPECT_EQ(found.front()->stringValue(), expected) << path;
        }
    }
}

TEST(PlistInfoElement, ChildListsAreMadeOnceEvenBetweenThreads)
{
    Array items;
    for (int i = 0; i < 100; ++i)
        items.append(i);
    const auto node = plistElement(items);
    std::vector<std::vector<std::shared_ptr<ADMInfo>>> lists(4);
    {
        std::vector<std::jthread> threads;
        for (auto& list : lists)
            threads.emplace_back([&] { list = node->allInfos(); });
    }
    for (const auto& list : lists)
        EXPECT_EQ(list, lists.front());
    EXPECT_EQ(lists.front().at(99)->numberValue(), 99);
}

TEST(PlistInfoElement, ValuesConvertWhereTheKindAllows)
{
    EXPECT_FALSE(plistElement(7)->stringValue());
    EXPECT_EQ(plistElement(Date(0))->stringValue(), "1970-01-01 00:00:00 +0000");
    EXPECT_FALSE(plistElement("yesterday")->dateValue());
    EXPECT_FALSE(plistElement("text")->dataValue());
    EXPECT_FALSE(plistElement(Dictionary{{"o", Value::ofObject(std::make_shared<int>())}})->dataValue());

    const Dictionary dictionary{{"k", 1.5}};
    const auto data = plistElement(dictionary)->dataValue();
    ASSERT_TRUE(data);
    EXPECT_EQ(dmf::PropertyList::parse(data->bytes()), Value(dictionary));
}

TEST(PlistInfoElement, NumbersOfStringsAreSinglePrecisionAndNeverFail)
{
    const std::pair<const char*, float> cases[] = {
        {"2.5", 2.5F}, {" \n+2.5e1mm", 25}, {"-.5", -0.5F}, {"0.1", 0.1F},          {"", 0},    {"-", 0},  {"inf", 0},
        {"0x10", 0},   {"1e99", INFINITY},  {"1e-99", 0},   {"16777217", 16777216}, {"1,5", 1}, {"+-1", 0}};
    for (const auto& [text, expected] : cases) {
        const auto number = plistElement(text)->numberValue();
        ASSERT_TRUE(number) << text;
        EXPECT_EQ(number->kind(), dmf::Number::Kind::real);
        EXPECT_EQ(number->doubleValue(), double{expected}) << text;
    }
    EXPECT_EQ(plistElement("1" + std::string(60, '0'))->numberValue()->doubleValue(), INFINITY);
    EXPECT_EQ(plistElement(std::uint64_t{1} << 63)->numberValue()->uint64Value(), std::uint64_t{1} << 63);
    EXPECT_FALSE(plistElement(true)->numberValue());
}
