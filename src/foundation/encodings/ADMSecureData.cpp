#include <dmf/ADMSecureData.h>

#include "foundation/encodings/CryptedData.h"
#include "foundation/keys/ModelKeys.h"
#include "platform/secrets/Ciphers.h"

#include <array>
#include <cstring>
#include <mutex>
#include <string_view>
#include <utility>

using dmf::Data;
using namespace dmf::internal;

namespace {

/// Its round keys are made once: file names are short, and making them would cost more than the names themselves.
const TripleDesKey& namesKey()
{
    static const auto* const key = new TripleDesKey(kDM3DESKey);
    return *key;
}

std::unique_ptr<CipherStream> makeStream(std::int32_t cipher, CipherDirection direction)
{
    switch (cipher) {
    case 0:
    case 1: return makeRc4(kDMKey);
    case 2: return makeTripleDes(namesKey(), direction);
    default: return nullptr;
    }
}

} // namespace

const dmf::Protocol& ADMSecureData::protocol()
{
    static constexpr std::string_view operations[] = {
        "encryptData:withCipher:",
        "decryptData:withCipher:",
        "MD5DataForData:",
        "MD5HashForData:",
    };
    static constexpr dmf::Protocol described("ADMSecureData", {}, operations);
    return described;
}

bool ADMSecureData::loadCSP()
{
    static std::mutex lock;
    static bool isLoaded = false; // guarded by lock
    std::lock_guard guard(lock);
    if (!isLoaded)
        isLoaded = ciphersGiveKnownAnswers();
    return isLoaded;
}

std::optional<Data> ADMSecureData::processData(const Data& data, std::int32_t cipher, Direction direction) const
{
    if (data.empty() || !loadCSP())
        return {};
    const auto stream =
        makeStream(cipher, direction == Direction::encrypt ? CipherDirection::encrypt : CipherDirection::decrypt);
    if (!stream)
        return {};
    auto output = cryptedData(*stream, data.bytes());
    return output.empty() ? std::nullopt : std::optional<Data>(std::move(output));
}

std::optional<Data> ADMSecureData::encryptData(const Data& data, std::int32_t cipher) const
{
    return processData(data, cipher, Direction::encrypt);
}

std::optional<Data> ADMSecureData::decryptData(const Data& data, std::int32_t cipher) const
{
    return processData(data, cipher, Direction::decrypt);
}

std::optional<Data> ADMSecureData::MD5DataForData(const Data& data) const
{
    if (!loadCSP())
        return {};
    return Data(md5(data.bytes()));
}

std::uint32_t ADMSecureData::MD5HashForData(const Data& data) const
{
    const auto digest = MD5DataForData(data);
    if (!digest)
        return 0;
    std::array<std::uint32_t, 4> words;
    std::memcpy(words.data(), digest->bytes().data(), sizeof words);
    return words[0] ^ words[1] ^ words[2] ^ words[3];
}
