#include "platform/SecretSession.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using dmf::Secret;
using dmf::internal::SecretSession;

TEST(SecretSession, BothSidesReadEachOthersSecretsAndNobodyElseDoes)
{
    SecretSession left, right, stranger;
    ASSERT_TRUE(left.agree(right.publicKey()));
    ASSERT_TRUE(right.agree(left.publicKey()));
    ASSERT_TRUE(stranger.agree(left.publicKey()));
    for (const std::size_t length : {0U, 1U, 15U, 16U, 17U, 1000U}) {
        const std::string text(length, 'x');
        const auto sent = left.encipher(Secret(text));
        EXPECT_EQ(std::string(sent.value.begin(), sent.value.end()).find("xxx"), std::string::npos);
        const auto received = right.decipher(sent.parameters, sent.value);
        ASSERT_TRUE(received);
        EXPECT_EQ(received->view(), text);
        const auto overheard = stranger.decipher(sent.parameters, sent.value);
        EXPECT_FALSE(overheard && length > 0 && overheard->view() == text);
    }
    EXPECT_NE(left.encipher(Secret("same")).value, left.encipher(Secret("same")).value);
}

TEST(SecretSession, RefusesKeysThatGiveTheSecretAwayAndMessagesThatAreNone)
{
    SecretSession left, right;
    using Bytes = std::vector<std::uint8_t>;
    for (const Bytes& weak : {Bytes{}, Bytes{0}, Bytes{1}, Bytes(128, 0xFF), Bytes(129, 1)})
        EXPECT_FALSE(left.agree(weak));
    ASSERT_TRUE(left.agree(right.publicKey()));
    ASSERT_TRUE(right.agree(left.publicKey()));

    const auto sent = left.encipher(Secret("password"));
    EXPECT_FALSE(right.decipher({}, sent.value) || right.decipher(sent.parameters, {}));
    EXPECT_FALSE(right.decipher(sent.parameters, Bytes(sent.value.begin(), sent.value.end() - 1)));
    // The padding is chosen by whoever sends: 0 and more than a block are none.
    for (const std::uint8_t change : {std::uint8_t{8}, std::uint8_t{0x18 ^ 0x08}}) {
        auto parameters = sent.parameters; // flipping a bit of the vector flips that bit of the first block
        parameters.back() ^= change;
        EXPECT_FALSE(right.decipher(parameters, sent.value));
    }
}

} // namespace
