#include <dmf/platform/Unicode.h>

#include <gtest/gtest.h>

#include <clocale>
#include <string>

using dmf::TextRange;

TEST(Unicode, TellsUtf8FromOtherBytes)
{
    const std::string longAscii(1000, 'x');
    for (const std::string& text : {std::string(), std::string("plain"), std::string("zero\0inside", 11),
                                    longAscii + "é", std::string("\u007F\u0080\u07FF\u0800\uFFFF\U00010000\U0010FFFF")})
        EXPECT_TRUE(dmf::isValidUtf8(text)) << text;
    for (const char* text : {"\x80", "\xC3", "\xC3(", "\xC0\xAF", "\xE0\x80\xAF", "\xED\xA0\x80", "\xF0\x80\x80\x80",
                             "\xF4\x90\x80\x80", "\xF8\x88\x80\x80\x80", "\xE2\x82", "\xFF"}) {
        EXPECT_FALSE(dmf::isValidUtf8(text));
        EXPECT_FALSE(dmf::isValidUtf8(longAscii + text + longAscii));
    }
}

TEST(Unicode, CharactersComeOffBothEndsAndGoBackUnchangedWhateverTheBytes)
{
    // Every byte after every kind of beginning: broken sequences in all forms.
    std::string text;
    for (const char* beginning : {"", "a", "\xC3", "\xE2\x82", "\xF0\x9F\x98", "é", "😀"})
        for (int byte = 0; byte < 256; ++byte)
            (text += beginning) += static_cast<char>(byte);

    std::string forward;
    std::u32string characters;
    for (std::string_view rest = text; !rest.empty();) {
        characters += dmf::takeCharacter(rest);
        dmf::appendCharacter(forward, characters.back());
    }
    EXPECT_EQ(forward, text);

    std::u32string backward;
    for (std::string_view rest = text; !rest.empty();)
        backward.insert(backward.begin(), dmf::takeLastCharacter(rest));
    EXPECT_EQ(backward, characters);
}

TEST(Unicode, ChangesLetterCaseAlikeInEveryLocale)
{
    const std::string before = std::setlocale(LC_ALL, nullptr);
    for (const char* locale : {"C", "tr_TR.UTF-8", "C.UTF-8"}) {
        std::setlocale(LC_ALL, locale); // where the machine does not have it, nothing changes
        EXPECT_EQ(dmf::lowercased("TITLE I ÄÖÜ ЖΣ \xFF"), "title i äöü жσ \xFF");
        EXPECT_EQ(dmf::uppercased("title i äöü жς \xFF"), "TITLE I ÄÖÜ ЖΣ \xFF");
    }
    std::setlocale(LC_ALL, before.c_str());
}

TEST(Unicode, ComparesAndFindsWithoutRegardToCase)
{
    EXPECT_TRUE(dmf::equalIgnoringCase("ὀδυσσεύς", "ὈΔΥΣΣΕΎΣ"));
    EXPECT_TRUE(dmf::equalIgnoringCase("\u212A", "k"));
    EXPECT_FALSE(dmf::equalIgnoringCase("\xFF", "\xFE"));
    EXPECT_FALSE(dmf::equalIgnoringCase("i", "\u0131"));
    EXPECT_FALSE(dmf::equalIgnoringCase("[", "{"));
    EXPECT_EQ(dmf::findIgnoringCase("a SERIAL=1 serial=2", "serial="), (TextRange{2, 7}));
    EXPECT_EQ(dmf::findIgnoringCase("a SERIAL=1 serial=2", "serial=", 3), (TextRange{11, 7}));
    // The match may be longer or shorter in bytes than what was searched for.
    EXPECT_EQ(dmf::findIgnoringCase("1\u212Aelvin", "KEL"), (TextRange{1, 5}));
    EXPECT_EQ(dmf::findIgnoringCase("1kelvin", "\u212Ael"), (TextRange{1, 3}));
    EXPECT_EQ(dmf::findIgnoringCase("abc", ""), std::nullopt);
    EXPECT_EQ(dmf::findIgnoringCase("abc", "c", 3), std::nullopt);
    // Long stretches of one letter take no longer than others; a false start costs no place.
    const std::string a(200'000, 'a');
    EXPECT_EQ(dmf::findIgnoringCase(a, std::string(100'000, 'A') + "b"), std::nullopt);
    EXPECT_EQ(dmf::findIgnoringCase("é" + a + "B", a.substr(1) + "b"), (TextRange{3, 200'000}));
    EXPECT_EQ(dmf::findIgnoringCase("éabaabaaab", "abaaa"), (TextRange{5, 5}));
}
