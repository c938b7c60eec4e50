#include <dmf/platform/Class.h>

#include <memory>

#include <gtest/gtest.h>

using dmf::Class;
using dmf::ClassRegistry;
using dmf::Protocol;

namespace {

struct Reader {
    using Factory = std::shared_ptr<Reader>(int);
    static const Protocol& protocol()
    {
        static constexpr Protocol kProtocol("Reader", {}, {});
        return kProtocol;
    }
    explicit Reader(int number) : value(number) {}
    int value;
};

/// Extends Reader.
struct FastReader : Reader {
    using Factory = std::shared_ptr<FastReader>(int);
    static const Protocol& protocol()
    {
        static const Protocol* const adopted[] = {&Reader::protocol()};
        static const Protocol kProtocol("FastReader", adopted, {});
        return kProtocol;
    }
    using Reader::Reader;
};

const int gAnchor = 0;

std::shared_ptr<Class> makeClass(std::string name)
{
    return std::make_shared<Class>(std::move(name), &gAnchor);
}

} // namespace

TEST(Class, MakesObjectsThroughTheInterfacesItStates)
{
    const auto made = makeClass("Fast");
    made->implements<FastReader>([](int value) { return value > 0 ? std::make_shared<FastReader>(value) : nullptr; });
    EXPECT_TRUE(made->conformsTo(FastReader::protocol()));
    EXPECT_TRUE(made->conformsTo(Reader::protocol())); // through the one that extends it
    EXPECT_EQ(made->make<FastReader>(7)->value, 7);
    EXPECT_EQ(made->make<FastReader>(-7), nullptr); // the factory refuses
    EXPECT_EQ(made->make<Reader>(7), nullptr);      // conforms to it, yet states no way to be made through it
}

TEST(Class, FirstOfANameStaysAndOnlyTheVeryClassIsRemoved)
{
    ClassRegistry& registry = ClassRegistry::shared();
    const auto first = makeClass("Twice");
    const auto second = makeClass("Twice");
    EXPECT_TRUE(registry.add(first));
    EXPECT_FALSE(registry.add(second));
    registry.remove(second);
    EXPECT_EQ(registry.classNamed("Twice"), first);
    registry.remove(first);
    EXPECT_EQ(registry.classNamed("Twice"), nullptr);
}

TEST(Class, ADescriptionThatThrowsMakesNoClass)
{
    const dmf::ClassRegistration registration("Thrown", &gAnchor, [](Class&) { throw 1; });
    EXPECT_EQ(ClassRegistry::shared().classNamed("Thrown"), nullptr);
}
