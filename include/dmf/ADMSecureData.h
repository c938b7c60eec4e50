#pragma once

#include <cstdint>
#include <optional>

#include <dmf/platform/Data.h>
#include <dmf/platform/Export.h>
#include <dmf/platform/Protocol.h>

/// Enciphers and deciphers bytes with the fixed keys of the model database, and makes digests. Ciphers by number:
///
/// - 0 and 1: RC4 with the contents key, for the contents of model files;
/// - 2: triple DES with the names key (three keys, ECB, PKCS#5 padding, so equal inputs give equal outputs), for the
///   names of model files;
/// - any other: none, every result is nothing.
///
/// Neither cipher tells a wrong key or damaged bytes: who deciphers looks at what came out. Holds no state, so it may
/// be made freely. Thread-safe.
class DMF_EXPORT ADMSecureData {
public:
    [[nodiscard]] static const dmf::Protocol& protocol();

    /// Nothing for empty data and for an unknown cipher.
    [[nodiscard]] std::optional<dmf::Data> encryptData(const dmf::Data& data, std::int32_t cipher) const;
    /// Nothing for empty data, for an unknown cipher and when nothing could be deciphered. Damage at the end costs the
    /// last block only: the blocks before it are given all the same.
    [[nodiscard]] std::optional<dmf::Data> decryptData(const dmf::Data& data, std::int32_t cipher) const;

    /// The digest (RFC 1321), 16 bytes; nothing when the ciphers cannot be used.
    [[nodiscard]] std::optional<dmf::Data> MD5DataForData(const dmf::Data& data) const;
    /// The digest's four 32-bit words, read in the machine's own byte order, combined by exclusive or. The same bytes
    /// therefore hash differently on machines of another byte order. 0 when there is no digest.
    [[nodiscard]] std::uint32_t MD5HashForData(const dmf::Data& data) const;

    /// Whether the ciphers can be used: looks once per process that they give known answers. Every operation above does
    /// so by itself. A failure is looked at again by the next call.
    [[nodiscard]] static bool loadCSP();

private:
    enum class Direction : bool { decrypt, encrypt };
    [[nodiscard]] std::optional<dmf::Data> processData(const dmf::Data& data, std::int32_t cipher,
                                                       Direction direction) const;
};
