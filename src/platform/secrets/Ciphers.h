#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

#include <dmf/platform/Export.h>

namespace dmf::internal {

using Bytes = std::span<const std::uint8_t>;
using MutableBytes = std::span<std::uint8_t>;

/// A cipher at work on one message, fed piece by piece. Reentrant. Exported, like all here, for the tests; the header
/// is not installed.
class DMF_EXPORT CipherStream {
public:
    /// How much longer than its input an output can be.
    static constexpr std::size_t kLongestSurplus = 8;

    virtual ~CipherStream();
    /// Works on the next piece. `output` must have room for the input and kLongestSurplus bytes, and may not overlap
    /// it. Gives how many bytes were written, or nothing when the piece cannot be worked on.
    virtual std::optional<std::size_t> update(Bytes input, MutableBytes output) = 0;
    /// Ends the message: what is still held back goes to `output` (room for kLongestSurplus bytes). Nothing when the
    /// message cannot end here: its length or its padding is wrong.
    virtual std::optional<std::size_t> finish(MutableBytes output) = 0;
};

enum class CipherDirection : bool { decrypt, encrypt };

/// RC4; the key is 1 to 256 bytes long. Both directions are the same.
[[nodiscard]] DMF_EXPORT std::unique_ptr<CipherStream> makeRc4(Bytes key);

/// The round keys of triple DES, whose making costs more than a block. Immutable, thread-safe.
class DMF_EXPORT TripleDesKey {
public:
    explicit TripleDesKey(std::span<const std::uint8_t, 24> key);
    ~TripleDesKey();
    TripleDesKey(const TripleDesKey&) = delete;
    TripleDesKey& operator=(const TripleDesKey&) = delete;

    struct Schedule;
    [[nodiscard]] const Schedule& schedule() const noexcept { return *schedule_; }

private:
    std::unique_ptr<Schedule> schedule_;
};

/// Triple DES (encrypt, decrypt, encrypt with three keys), ECB, PKCS#5 padding. `key` must outlive the stream.
[[nodiscard]] DMF_EXPORT std::unique_ptr<CipherStream> makeTripleDes(const TripleDesKey& key,
                                                                     CipherDirection direction);

/// The digest of RFC 1321.
[[nodiscard]] DMF_EXPORT std::array<std::uint8_t, 16> md5(Bytes data) noexcept;

/// Whether the ciphers above give known answers with the cipher library that the process has loaded.
[[nodiscard]] DMF_EXPORT bool ciphersGiveKnownAnswers();

} // namespace dmf::internal
