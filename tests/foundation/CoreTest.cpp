#include <dmf/DMCore.h>

#include <sys/single_threaded.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>

#include <gtest/gtest.h>

#include "support/HostFixture.h"

namespace {

constexpr std::string_view kBaseOperations[] = {"a", "b"};
constexpr dmf::Protocol kBase("Base", {}, kBaseOperations);
constexpr std::string_view kOtherOperations[] = {"c"};
constexpr const dmf::Protocol* kOtherAdopts[] = {&kBase};
constexpr dmf::Protocol kOther("Other", kOtherAdopts, kOtherOperations);
constexpr std::string_view kBothOperations[] = {"d", "e"};
constexpr const dmf::Protocol* kBothAdopts[] = {&kBase, &kOther};
constexpr dmf::Protocol kBoth("Both", kBothAdopts, kBothOperations);

std::string joined(const std::vector<const std::string_view*>& operations)
{
    std::string text;
    for (const auto* operation : operations)
        text += *operation;
    return text;
}

} // namespace

TEST(Core, InitLeavesTheSingleThreadedModeOnceAndForAll)
{
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the tool has threads of its own";
#endif
    // In a child of its own: this process may have threads already, or have had some.
    const pid_t child = ::fork();
    if (child == 0) {
        __libc_single_threaded = 1; // as in a program that has just begun
        DMCoreInit();
        const bool isLeft = !__libc_single_threaded;
        __libc_single_threaded = 1;
        DMCoreInit();
        ::_exit(!isLeft ? 1 : __libc_single_threaded ? 0 : 2);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status)) << status;
    EXPECT_EQ(WEXITSTATUS(status), 0) << "1: the mode was not left; 2: a second call did something";
}

TEST(Core, MemoryFunctionsKeepTheirQuirks)
{
    EXPECT_EQ(DMCalloc(0, 8), nullptr);
    EXPECT_EQ(DMRealloc(nullptr, 16), nullptr);

    auto* zeros = static_cast<char*>(DMCalloc(3, 5));
    ASSERT_NE(zeros, nullptr);
    EXPECT_EQ(std::string(zeros, 15), std::string(15, '\0'));
    std::strcpy(zeros, "kept");
    EXPECT_EQ(DMRealloc(zeros, 0), nullptr);
    EXPECT_STREQ(zeros, "kept"); // still valid and still ours
    auto* longer = static_cast<char*>(DMRealloc(zeros, 4096));
    ASSERT_NE(longer, nullptr);
    EXPECT_STREQ(longer, "kept");
    DMFree(longer);
    DMFree(nullptr);
}

TEST(Core, IntrospectionWalksBackwardsAndKeepsDuplicates)
{
    HostFixture host;
    EXPECT_EQ(joined(DMGetObjCProtocolSelectors(&kBoth)), "bac"
                                                          "ba"
                                                          "ed");
    EXPECT_EQ(DMGetObjCProtocolSelectors(&kBoth).back(), &kBothOperations[0]); // the descriptor's own text
    EXPECT_TRUE(DMObjCProtocolHasSelector(&kBoth, "c"));
    EXPECT_FALSE(DMObjCProtocolHasSelector(&kBase, "c"));
    constexpr dmf::Protocol sameName("Base", {}, {}); // as a plug-in would hold it
    EXPECT_TRUE(DMObjCProtocolsEqual(&kBase, &sameName));
    EXPECT_FALSE(DMObjCProtocolsEqual(&kOther, &kBase)); // one extends the other
    EXPECT_FALSE(DMObjCProtocolsEqual(&kBase, &kOther));
    EXPECT_FALSE(DMObjCProtocolsEqual(&kBase, nullptr));
    EXPECT_FALSE(DMObjCProtocolsEqual(nullptr, &kBase));
    EXPECT_TRUE(DMObjCProtocolsEqual(nullptr, nullptr));
    host.setSystemVersion(0x104F); // too old for it
    EXPECT_TRUE(DMGetObjCProtocolSelectors(&kBoth).empty());
    EXPECT_FALSE(DMObjCProtocolsEqual(&kBase, &kBase));
}

TEST(Core, LocaleIsLanguageAndRegionOfTheFirstPreference)
{
    using Environment = std::map<std::string, std::string, std::less<>>;
    const struct {
        Environment environment;
        std::optional<std::string> locale;
    } cases[] = {
        {{}, std::nullopt},
        {{{"LANG", "de_AT.UTF-8@euro"}}, "de-AT"},
        {{{"LANG", "zh_Hant_TW.UTF-8"}}, "zh-TW"},
        {{{"LANG", "es_419"}}, "es-419"},
        {{{"LANG", "EN_us"}}, "en-US"},
        {{{"LANG", "C.UTF-8"}}, std::nullopt},
        {{{"LANG", "/some/where"}}, std::nullopt},
        {{{"LANGUAGE", "sv_SE:de:en"}, {"LC_ALL", "fr_FR"}}, "sv-SE"},
        {{{"LANGUAGE", ""}, {"LC_MESSAGES", "it_IT"}, {"LANG", "fr_FR"}}, "it-IT"},
        {{{"LC_ALL", "C"}, {"LANG", "de_DE"}}, std::nullopt},
    };
    HostFixture host;
    for (const auto& [environment, locale] : cases) {
        host.host().environmentOverride = environment;
        EXPECT_EQ(DMSystemLocaleString(), locale) << (environment.empty() ? "" : environment.begin()->second);
    }
}

TEST(Core, ColourNamesAreReducedToLetters)
{
    EXPECT_EQ(DMCanonicalColorName("Light Cyan Ink"), "lightcyan");
    EXPECT_EQ(DMCanonicalColorName("Yellow Toner SUPPLY"), "yellow");
    EXPECT_EQ(DMCanonicalColorName("Ink Toner"), "ink"); // no blank in front of the first word
    EXPECT_EQ(DMCanonicalColorName("Bl\xC3\x84ulich #3"), "bl\xC3\xA4ulich");
}
