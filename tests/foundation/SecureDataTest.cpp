#include <dmf/ADMSecureData.h>

#include <dmf/DMDataExtension.h>
#include <dmf/DMStringExtension.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <numeric>
#include <vector>

using dmf::Data;

namespace {

Data sample(std::size_t size)
{
    std::vector<std::uint8_t> bytes(size);
    std::iota(bytes.begin(), bytes.end(), std::uint8_t{3});
    return Data(std::move(bytes));
}

Data firstBytes(const Data& data, std::size_t count)
{
    return Data(data.bytes().first(count));
}

} // namespace

TEST(SecureData, DeciphersWhatItEnciphered)
{
    const ADMSecureData secure;
    for (const std::int32_t cipher : {0, 1, 2}) {
        for (const std::size_t size : {1u, 7u, 8u, 9u, 1023u, 1024u, 1025u, 2048u, 5000u, 100'000u}) {
            const auto enciphered = secure.encryptData(sample(size), cipher);
            ASSERT_TRUE(enciphered);
            EXPECT_EQ(enciphered->size(), cipher == 2 ? size / 8 * 8 + 8 : size);
            EXPECT_NE(firstBytes(*enciphered, std::min<std::size_t>(size, 8)), sample(std::min<std::size_t>(size, 8)));
            EXPECT_EQ(secure.decryptData(*enciphered, cipher), sample(size)) << cipher << ", " << size;
            EXPECT_EQ(secure.encryptData(sample(size), cipher), enciphered);
        }
    }
    EXPECT_EQ(secure.encryptData(sample(100), 0), secure.encryptData(sample(100), 1));
}

TEST(SecureData, DamageAtTheEndCostsTheLastBlockOnlyAndEmptyDataAndUnknownCiphersGiveNothing)
{
    const ADMSecureData secure;
    const Data plain = sample(2000);
    const Data enciphered = *secure.encryptData(plain, 2);
    // Cut inside a block: every whole block is still given. Cut at a block: the last one is held for its padding.
    EXPECT_EQ(secure.decryptData(firstBytes(enciphered, 1999), 2), firstBytes(plain, 1992));
    EXPECT_EQ(secure.decryptData(firstBytes(enciphered, 1992), 2), firstBytes(plain, 1984));
    EXPECT_EQ(secure.decryptData(firstBytes(enciphered, 8), 2), std::nullopt);
    EXPECT_EQ(secure.decryptData(firstBytes(enciphered, 7), 2), std::nullopt);
    for (const std::int32_t cipher : {0, 1, 2})
        EXPECT_FALSE(secure.encryptData(Data(), cipher) || secure.decryptData(Data(), cipher));
    for (const std::int32_t cipher : {3, -1})
        EXPECT_FALSE(secure.encryptData(plain, cipher) || secure.decryptData(plain, cipher));
}

TEST(SecureData, HashesAreTheFoldedDigest)
{
    const ADMSecureData secure;
    const Data digest = *secure.MD5DataForData(Data::fromText("abc"));
    EXPECT_EQ(com_ql_dmf_hexadecimalRepresentationString(digest), "900150983CD24FB0D6963F7D28E17F72");
    const std::uint32_t expected = std::endian::native == std::endian::little
                                       ? 0x98500190u ^ 0xB04FD23Cu ^ 0x7D3F96D6u ^ 0x727FE128u
                                       : 0x90015098u ^ 0x3CD24FB0u ^ 0xD6963F7Du ^ 0x28E17F72u;
    EXPECT_EQ(secure.MD5HashForData(Data::fromText("abc")), expected);
    EXPECT_EQ(com_ql_dmf_MD5Hash("abc"), expected);
}
