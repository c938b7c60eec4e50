#include <dmf/platform/SharedList.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using List = dmf::SharedList<std::string>;

List listOf(std::initializer_list<const char*> texts)
{
    List list;
    for (const char* text : texts)
        list.append(text);
    return list;
}

std::vector<std::string> contents(const List& list)
{
    return {list.begin(), list.end()};
}

} // namespace

TEST(SharedList, ChangesInPlaceDoNotReachTheOtherOwners)
{
    using Texts = std::vector<std::string>;
    const List original = listOf({"a", "c", "d"});
    List inserted = original;
    inserted.insert(1, "b");
    EXPECT_EQ(contents(inserted), (Texts{"a", "b", "c", "d"}));
    inserted.insert(4, "e");
    inserted.insert(0, "0");
    EXPECT_EQ(contents(inserted), (Texts{"0", "a", "b", "c", "d", "e"}));

    List erased = original;
    erased.erase(1);
    EXPECT_EQ(contents(erased), (Texts{"a", "d"}));
    erased.erase(1);
    erased.erase(0);
    EXPECT_EQ(contents(erased), Texts{});

    List reserved = original;
    reserved.reserve(1); // already there, but shared
    reserved.edit()[0] = "x";
    EXPECT_EQ(contents(reserved), (Texts{"x", "c", "d"}));
    EXPECT_EQ(contents(original), (Texts{"a", "c", "d"}));
}

TEST(SharedList, ElementsMayBeMadeOfTheListItself)
{
    List list = listOf({"a text that is too long for the string object itself", "short"});
    for (int i = 0; i < 20; ++i)
        list.appendMade([&list] { return list.begin()[list.size() - 2]; });
    for (std::size_t i = 0; i < list.size(); ++i)
        EXPECT_EQ(list.begin()[i], list.begin()[i % 2]) << i;
    EXPECT_EQ(list.begin()[1], "short");
    EXPECT_EQ(list.size(), 22u);
}
