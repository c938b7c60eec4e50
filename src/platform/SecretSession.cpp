#include "platform/SecretSession.h"

#include <sys/random.h>

#include <gmp.h>
#include <nettle/aes.h>
#include <nettle/cbc.h>
#include <nettle/hkdf.h>
#include <nettle/hmac.h>

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <system_error>

namespace dmf::internal {
namespace {

constexpr const char* kPrime = "FFFFFFFFFFFFFFFFC90FDAA22168C234C4C6628B80DC1CD129024E088A67CC74"
                               "020BBEA63B139B22514A08798E3404DDEF9519B3CD3A431B302B0A6DF25F1437"
                               "4FE1356D6D51C245E485B576625E7EC6F44C42E9A637ED6B0BFF5CB6F406B7ED"
                               "EE386BFB5A899FA5AE9F24117C4B1FE649286651ECE65381FFFFFFFFFFFFFFFF";
constexpr unsigned long kGenerator = 2;
constexpr std::size_t kBlock = AES_BLOCK_SIZE;

/// A number that is wiped when it goes, as far as it is the number's own memory.
class Number {
public:
    Number() { mpz_init(number_); }
    explicit Number(std::span<const std::uint8_t> bytes) : Number()
    {
        mpz_import(number_, bytes.size(), 1, 1, 1, 0, bytes.data());
    }
    explicit Number(unsigned long value) : Number() { mpz_set_ui(number_, value); }
    ~Number()
    {
        const std::size_t limbs = mpz_size(number_);
        Secret::wipe(mpz_limbs_modify(number_, static_cast<mp_size_t>(limbs)), limbs * sizeof(mp_limb_t));
        mpz_clear(number_);
    }
    Number(const Number&) = delete;
    Number& operator=(const Number&) = delete;

    /// Big end first, filled up with zeros in front.
    template <std::size_t Size>
    void write(std::array<std::uint8_t, Size>& bytes) const
    {
        bytes.fill(0);
        const std::size_t count = (mpz_sizeinbase(number_, 2) + 7) / 8;
        if (mpz_sgn(number_) != 0 && count <= Size)
            mpz_export(bytes.data() + (Size - count), nullptr, 1, 1, 1, 0, number_);
    }
    mpz_ptr get() noexcept { return number_; }

private:
    mpz_t number_;
};

void setToPrime(Number& number)
{
    mpz_set_str(number.get(), kPrime, 16);
}

void fillAtRandom(std::span<std::uint8_t> bytes)
{
    std::size_t filled = 0;
    while (filled < bytes.size()) {
        const auto got = ::getrandom(bytes.data() + filled, bytes.size() - filled, 0);
        if (got < 0 && errno != EINTR)
            throw std::system_error(errno, std::generic_category(), "getrandom");
        filled += got > 0 ? static_cast<std::size_t>(got) : 0;
    }
}

/// The key derivation that the protocol names: HKDF over SHA-256 without salt and context.
template <std::size_t Size, std::size_t KeySize>
void deriveKey(const std::array<std::uint8_t, Size>& common, std::array<std::uint8_t, KeySize>& key)
{
    constexpr std::array<std::uint8_t, SHA256_DIGEST_SIZE> noSalt{};
    const auto update = reinterpret_cast<nettle_hash_update_func*>(&hmac_sha256_update);
    const auto digest = reinterpret_cast<nettle_hash_digest_func*>(&hmac_sha256_digest);
    std::array<std::uint8_t, SHA256_DIGEST_SIZE> drawn;
    hmac_sha256_ctx context;
    hmac_sha256_set_key(&context, noSalt.size(), noSalt.data());
    hkdf_extract(&context, update, digest, drawn.size(), common.size(), common.data(), drawn.data());
    hmac_sha256_set_key(&context, drawn.size(), drawn.data());
    hkdf_expand(&context, update, digest, drawn.size(), 0, nullptr, key.size(), key.data());
    Secret::wipe(drawn.data(), drawn.size());
    Secret::wipe(&context, sizeof context);
}

} // namespace

SecretSession::SecretSession()
{
    fillAtRandom(privateKey_);
}

SecretSession::~SecretSession()
{
    Secret::wipe(privateKey_.data(), privateKey_.size());
    Secret::wipe(key_.data(), key_.size());
}

std::vector<std::uint8_t> SecretSession::publicKey() const
{
    Number prime, base(kGenerator), exponent(privateKey_), power;
    setToPrime(prime);
    mpz_powm(power.get(), base.get(), exponent.get(), prime.get());
    std::array<std::uint8_t, kGroupSize> bytes;
    power.write(bytes);
    return {bytes.begin(), bytes.end()};
}

bool SecretSession::agree(Bytes otherPublicKey)
{
    if (otherPublicKey.size() > kGroupSize)
        return false;
    Number prime, largest, other(otherPublicKey), exponent(privateKey_), power;
    setToPrime(prime);
    mpz_sub_ui(largest.get(), prime.get(), 2);
    if (mpz_cmp_ui(other.get(), 2) < 0 || mpz_cmp(other.get(), largest.get()) > 0)
        return false;
    mpz_powm(power.get(), other.get(), exponent.get(), prime.get());
    std::array<std::uint8_t, kGroupSize> common;
    power.write(common);
    deriveKey(common, key_);
    Secret::wipe(common.data(), common.size());
    return true;
}

SecretSession::Enciphered SecretSession::encipher(const Secret& secret) const
{
    const std::string_view text = secret.view();
    const std::size_t padding = kBlock - text.size() % kBlock;
    Enciphered result;
    result.parameters.resize(kBlock);
    fillAtRandom(result.parameters);
    // In place: what holds the secret is overwritten by what may be seen.
    result.value.assign(text.size() + padding, static_cast<std::uint8_t>(padding));
    std::copy(text.begin(), text.end(), result.value.begin());

    std::vector<std::uint8_t> vector = result.parameters; // the cipher goes on with it
    aes128_ctx context;
    aes128_set_encrypt_key(&context, key_.data());
    cbc_encrypt(&context, reinterpret_cast<nettle_cipher_func*>(&aes128_encrypt), kBlock, vector.data(),
                result.value.size(), result.value.data(), result.value.data());
    Secret::wipe(&context, sizeof context);
    return result;
}

std::optional<Secret> SecretSession::decipher(Bytes parameters, Bytes value) const
{
    if (parameters.size() != kBlock || value.empty() || value.size() % kBlock != 0)
        return std::nullopt;
    std::vector<std::uint8_t> vector(parameters.begin(), parameters.end());
    std::vector<std::uint8_t> text(value.size());
    aes128_ctx context;
    aes128_set_decrypt_key(&context, key_.data());
    cbc_decrypt(&context, reinterpret_cast<nettle_cipher_func*>(&aes128_decrypt), kBlock, vector.data(), text.size(),
                text.data(), value.data());
    Secret::wipe(&context, sizeof context);

    const std::size_t padding = text.back();
    const bool isPadded = padding >= 1 && padding <= kBlock &&
                          std::all_of(text.end() - static_cast<std::ptrdiff_t>(padding), text.end(),
                                      [&](std::uint8_t byte) { return byte == padding; });
    std::optional<Secret> secret;
    if (isPadded)
        secret.emplace(std::string_view(reinterpret_cast<const char*>(text.data()), text.size() - padding));
    Secret::wipe(text.data(), text.size());
    return secret;
}

} // namespace dmf::internal
