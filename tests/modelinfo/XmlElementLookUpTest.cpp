// Elements are entered into their parent's table of identifiers when it is first asked; what it answers must not depend
// on when that is.

#include <dmf/ADMXMLElementImp.h>

#include <gtest/gtest.h>

namespace {

using dmf::Dictionary;
using Element = std::shared_ptr<ADMXMLElementImp>;

Element elementNamed(const char* attribute)
{
    auto result = std::make_shared<ADMXMLElementImp>("E");
    result->setAttributes({{"name", attribute}});
    return result;
}

/// The child that the parent finds by this attribute.
Element known(const Element& parent, const char* attribute)
{
    return std::dynamic_pointer_cast<ADMXMLElementImp>(parent->infoNamed("E", attribute, "name"));
}

} // namespace

TEST(XmlElementLookUp, AnswersDoNotDependOnTheFirstQuestion)
{
    for (const bool isAskedEarly : {true, false}) {
        const auto root = std::make_shared<ADMXMLElementImp>("r");
        const auto ask = [&] { return !isAskedEarly || !root->isMatrix(); };
        EXPECT_TRUE(ask());
        const auto first = elementNamed("a");
        const auto second = elementNamed("a");
        const auto changed = elementNamed("c");
        for (const auto& child : {first, second, changed})
            root->addElement(child);
        (void)ask();

        // Known by what it was when it was added; other names go by what it is now.
        changed->setAttributes({{"name", "d"}});
        EXPECT_EQ(changed->elementIdentifier(), "Enamec");
        EXPECT_EQ(known(root, "c"), changed);
        EXPECT_EQ(known(root, "d"), changed);
        EXPECT_EQ(known(root, "a"), second);
        EXPECT_FALSE(root->isMatrix());

        root->removeChildAtIndex(1);
        EXPECT_EQ(known(root, "a"), first);
        EXPECT_TRUE(root->isMatrix());
        const auto third = elementNamed("a");
        root->addElement(third);
        EXPECT_EQ(known(root, "a"), third);
        root->removeChildAtIndex(0);
        EXPECT_EQ(known(root, "a"), third);
        root->removeChildren();
        EXPECT_EQ(known(root, "a"), nullptr);
    }
}
