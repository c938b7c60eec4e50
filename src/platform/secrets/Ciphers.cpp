#include "platform/secrets/Ciphers.h"

#include <nettle/arcfour.h>
#include <nettle/des.h>
#include <nettle/md5.h>

#include <algorithm>
#include <string_view>
#include <vector>

namespace dmf::internal {

struct TripleDesKey::Schedule {
    des3_ctx context;
};

namespace {

constexpr std::size_t kBlock = DES3_BLOCK_SIZE;

class Rc4 final : public CipherStream {
public:
    explicit Rc4(Bytes key) { arcfour_set_key(&context_, key.size(), key.data()); }

    std::optional<std::size_t> update(Bytes input, MutableBytes output) override
    {
        arcfour_crypt(&context_, input.size(), output.data(), input.data());
        return input.size();
    }
    std::optional<std::size_t> finish(MutableBytes) override { return 0; }

private:
    arcfour_ctx context_;
};

/// Holds back what cannot be worked on yet: while enciphering an unfinished block, while deciphering the last block
/// besides, since only the end of the message tells whether it carries the padding.
class TripleDes final : public CipherStream {
public:
    TripleDes(const TripleDesKey& key, CipherDirection direction) : key_(key.schedule().context), direction_(direction)
    {
    }

    std::optional<std::size_t> update(Bytes input, MutableBytes output) override
    {
        const std::size_t total = held_ + input.size();
        std::size_t kept = total % kBlock;
        if (kept == 0 && total > 0 && direction_ == CipherDirection::decrypt)
            kept = kBlock;
        const std::size_t written = total - kept;
        if (written > 0) {
            if (held_ > 0) {
                input = hold(input, kBlock - held_);
                crypt(block_, output);
                output = output.subspan(kBlock);
                held_ = 0;
            }
            const std::size_t whole = input.size() - kept;
            crypt(input.first(whole), output);
            input = input.subspan(whole);
        }
        hold(input, input.size());
        return written;
    }

    std::optional<std::size_t> finish(MutableBytes output) override
    {
        if (direction_ == CipherDirection::encrypt) {
            const std::size_t padding = kBlock - held_;
            std::fill_n(block_.begin() + static_cast<std::ptrdiff_t>(held_), padding,
                        static_cast<std::uint8_t>(padding));
            crypt(block_, output);
            return kBlock;
        }
        if (held_ != kBlock)
            return {};
        std::array<std::uint8_t, kBlock> last;
        crypt(block_, last);
        const std::size_t padding = last.back();
        if (padding == 0 || padding > kBlock ||
            std::any_of(last.end() - static_cast<std::ptrdiff_t>(padding), last.end(),
                        [&](std::uint8_t byte) { return byte != padding; }))
            return {};
        std::copy_n(last.begin(), kBlock - padding, output.begin());
        return kBlock - padding;
    }

private:
    /// Moves bytes from the front of `input` behind the held ones and gives what is left of it.
    Bytes hold(Bytes input, std::size_t count)
    {
        std::copy_n(input.begin(), count, block_.begin() + static_cast<std::ptrdiff_t>(held_));
        held_ += count;
        return input.subspan(count);
    }

    /// Only ever called with whole blocks: the cipher library ends the process over anything else.
    void crypt(Bytes input, MutableBytes output) const
    {
        if (direction_ == CipherDirection::encrypt)
            des3_encrypt(&key_, input.size(), output.data(), input.data());
        else
            des3_decrypt(&key_, input.size(), output.data(), input.data());
    }

    const des3_ctx& key_;
    const CipherDirection direction_;
    std::array<std::uint8_t, kBlock> block_{};
    std::size_t held_ = 0;
};

Bytes bytesOf(std::string_view text)
{
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

bool gives(CipherStream& stream, std::string_view input, std::string_view expected)
{
    std::vector<std::uint8_t> output(input.size() + 2 * CipherStream::kLongestSurplus);
    const std::size_t updated = stream.update(bytesOf(input), output).value_or(0);
    const std::size_t finished = stream.finish(MutableBytes(output).subspan(updated)).value_or(0);
    return std::ranges::equal(Bytes(output).first(updated + finished), bytesOf(expected));
}

} // namespace

CipherStream::~CipherStream() = default;

std::unique_ptr<CipherStream> makeRc4(Bytes key)
{
    if (key.size() < ARCFOUR_MIN_KEY_SIZE || key.size() > ARCFOUR_MAX_KEY_SIZE)
        return nullptr;
    return std::make_unique<Rc4>(key);
}

TripleDesKey::TripleDesKey(std::span<const std::uint8_t, 24> key) : schedule_(std::make_unique<Schedule>())
{
    // A weak key is reported but made ready all the same; whether to use one is for the deployment to judge.
    des3_set_key(&schedule_->context, key.data());
}

TripleDesKey::~TripleDesKey() = default;

std::unique_ptr<CipherStream> makeTripleDes(const TripleDesKey& key, CipherDirection direction)
{
    return std::make_unique<TripleDes>(key, direction);
}

std::array<std::uint8_t, 16> md5(Bytes data) noexcept
{
    md5_ctx context;
    md5_init(&context);
    md5_update(&context, data.size(), data.data());
    std::array<std::uint8_t, MD5_DIGEST_SIZE> digest;
    md5_digest(&context, digest.size(), digest.data());
    return digest;
}

bool ciphersGiveKnownAnswers()
{
    using namespace std::string_view_literals;
    constexpr auto desKey = "\x01\x23\x45\x67\x89\xAB\xCD\xEF\x23\x45\x67\x89"
                            "\xAB\xCD\xEF\x01\x45\x67\x89\xAB\xCD\xEF\x01\x23"sv;
    constexpr auto enciphered = "\x6E\x39\xD4\x7E\xD2\x82\x5F\x05"sv;
    constexpr auto digest = "\x90\x01\x50\x98\x3C\xD2\x4F\xB0\xD6\x96\x3F\x7D\x28\xE1\x7F\x72"sv;
    const TripleDesKey key(bytesOf(desKey).first<24>());
    return gives(*makeRc4(bytesOf("Key")), "Plaintext", "\xBB\xF3\x16\xE8\xD9\x40\xAF\x0A\xD3") &&
           gives(*makeTripleDes(key, CipherDirection::encrypt), "a", enciphered) &&
           gives(*makeTripleDes(key, CipherDirection::decrypt), enciphered, "a") &&
           std::ranges::equal(md5(bytesOf("abc")), bytesOf(digest));
}

} // namespace dmf::internal
