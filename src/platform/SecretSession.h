#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include <dmf/platform/Export.h>
#include <dmf/platform/Secret.h>

namespace dmf::internal {

/// What two sides of a message bus agree on, so that secrets travel between them enciphered: a Diffie-Hellman exchange
/// in the second Oakley group, from which an AES key is drawn; each secret is in CBC mode with padding. The bus itself
/// and its buffers, which nobody wipes, then never hold a secret. Reentrant. Exported for the tests.
class DMF_EXPORT SecretSession {
public:
    using Bytes = std::span<const std::uint8_t>;
    struct Enciphered {
        std::vector<std::uint8_t> parameters; // the initial vector
        std::vector<std::uint8_t> value;
    };

    /// The name of the exchange in the protocol of the Secret Service.
    static constexpr const char* kAlgorithm = "dh-ietf1024-sha256-aes128-cbc-pkcs7";

    /// Draws a new private key.
    SecretSession();
    ~SecretSession();
    SecretSession(const SecretSession&) = delete;
    SecretSession& operator=(const SecretSession&) = delete;

    /// What the other side must be told; its leading zeros are there.
    [[nodiscard]] std::vector<std::uint8_t> publicKey() const;
    /// Takes the other side's public key; false for one that gives away the common key (0, 1, the group's order) or
    /// does not belong to the group.
    [[nodiscard]] bool agree(Bytes otherPublicKey);

    /// Both only after `agree`. What was not enciphered with the common key gives nothing.
    [[nodiscard]] Enciphered encipher(const Secret& secret) const;
    [[nodiscard]] std::optional<Secret> decipher(Bytes parameters, Bytes value) const;

private:
    static constexpr std::size_t kGroupSize = 128; // bytes of a number of the group
    static constexpr std::size_t kKeySize = 16;

    std::array<std::uint8_t, kGroupSize> privateKey_{};
    std::array<std::uint8_t, kKeySize> key_{};
};

} // namespace dmf::internal
