#include "platform/secrets/Ciphers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

using namespace dmf::internal;
using namespace std::string_view_literals;

namespace {

using Buffer = std::vector<std::uint8_t>;

Buffer bytes(std::string_view text)
{
    return {text.begin(), text.end()};
}

Buffer fromHex(std::string_view hex)
{
    Buffer result;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
        result.push_back(static_cast<std::uint8_t>(std::stoi(std::string(hex.substr(i, 2)), nullptr, 16)));
    return result;
}

/// Sends the input through in pieces of the given size; nothing when a step fails.
std::optional<Buffer> run(CipherStream& stream, Bytes input, std::size_t piece = 1024)
{
    Buffer output;
    Buffer part(piece + CipherStream::kLongestSurplus);
    while (!input.empty()) {
        const auto count = stream.update(input.first(std::min(piece, input.size())), part);
        if (!count)
            return {};
        output.insert(output.end(), part.begin(), part.begin() + static_cast<std::ptrdiff_t>(*count));
        input = input.subspan(std::min(piece, input.size()));
    }
    const auto count = stream.finish(part);
    if (!count)
        return {};
    output.insert(output.end(), part.begin(), part.begin() + static_cast<std::ptrdiff_t>(*count));
    return output;
}

TripleDesKey desKey(std::string_view hex)
{
    const Buffer key = fromHex(hex);
    return TripleDesKey(Bytes(key).first<24>());
}

constexpr std::string_view kDesKey = "0123456789abcdef23456789abcdef01456789abcdef0123";

} // namespace

TEST(Ciphers, Rc4GivesPublishedVectors)
{
    EXPECT_EQ(run(*makeRc4(bytes("Key")), bytes("Plaintext")), fromHex("bbf316e8d940af0ad3"));
    // The key stream of RFC 6229 for a key of 128 bits, whatever the pieces it comes in.
    const Buffer zeros(4112);
    for (const std::size_t piece : {1u, 7u, 1024u, 4112u}) {
        const auto stream = run(*makeRc4(fromHex("0102030405060708090a0b0c0d0e0f10")), zeros, piece);
        ASSERT_EQ(stream->size(), zeros.size());
        const auto at = [&](std::size_t offset) {
            return Buffer(stream->begin() + static_cast<std::ptrdiff_t>(offset),
                          stream->begin() + static_cast<std::ptrdiff_t>(offset + 16));
        };
        EXPECT_EQ(at(0), fromHex("9ac7cc9a609d1ef7b2932899cde41b97"));
        EXPECT_EQ(at(4096), fromHex("a36a4c301ae8ac13610ccbc12256cacc"));
    }
    EXPECT_EQ(makeRc4({}), nullptr);
    EXPECT_EQ(makeRc4(Buffer(257)), nullptr);
}

TEST(Ciphers, TripleDesGivesPublishedVectors)
{
    const auto key = desKey(kDesKey);
    const auto output = run(*makeTripleDes(key, CipherDirection::encrypt), bytes("The qufck brown fox jump"));
    ASSERT_EQ(output->size(), 32u);
    EXPECT_EQ(Buffer(output->begin(), output->begin() + 24),
              fromHex("a826fd8ce53b855fcce21c8112256fe668d5c05dd9b6b900"));
    for (std::size_t piece = 1; piece <= 33; ++piece)
        EXPECT_EQ(run(*makeTripleDes(key, CipherDirection::decrypt), *output, piece),
                  bytes("The qufck brown fox jump"));
}

TEST(Ciphers, TripleDesRefusesWrongLengthsAndPaddings)
{
    const auto key = desKey(kDesKey);
    for (const std::size_t size : {0u, 1u, 7u, 9u, 20u})
        EXPECT_EQ(run(*makeTripleDes(key, CipherDirection::decrypt), Buffer(size)), std::nullopt) << size;

    // Blocks whose end is no padding, made by enciphering them: the block of real padding after them is cut off.
    for (const auto last : {"1234567\0"sv, "1234567\x09"sv, "123456\x01\x02"sv, "1234567\xFF"sv}) {
        auto output = *run(*makeTripleDes(key, CipherDirection::encrypt), bytes(last));
        output.resize(8);
        EXPECT_EQ(run(*makeTripleDes(key, CipherDirection::decrypt), output), std::nullopt) << last;
    }
}
