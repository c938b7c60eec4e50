#include <dmf/ADMUsernameAndPasswordAuthenticationInfo.h>
#include <dmf/ADMWEPAuthenticationInfo.h>
#include <dmf/ADMWPAAuthenticationInfo.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "auth/KeyringThreads.h"
#include "auth/Service.h"
#include "support/HostFixture.h"
#include "support/KeyringFixture.h"

namespace {

/// Looks for a secret in all the memory that the process can write. The secret is kept in a disguise, and what is read
/// for the search lies in memory that is left out, so that the search does not find itself. Only the second half of a
/// long secret is looked for: the allocator itself overwrites the beginning of what it gets back. Of a short one only
/// the first character is left out: a string that was moved from has lost that one.
class MemorySearch {
public:
    static constexpr std::size_t kLong = 96;
    static constexpr std::size_t kShort = 13; // lies in the string itself, behind what the allocator overwrites

    explicit MemorySearch(std::size_t length = kLong)
        : length_(length), sought_(length == kLong ? kLong / 2 : length - 1), disguised_(length)
    {
        const int source = ::open("/dev/urandom", O_RDONLY | O_CLOEXEC);
        EXPECT_EQ(::read(source, disguised_.data(), length_), static_cast<ssize_t>(length_));
        ::close(source);
        for (auto& byte : disguised_)
            byte = static_cast<unsigned char>((byte % 26 + 'a') ^ kDisguise);
        window_ = static_cast<unsigned char*>(
            ::mmap(nullptr, kWindow, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    }
    ~MemorySearch() { ::munmap(window_, kWindow); }
    MemorySearch(const MemorySearch&) = delete;
    MemorySearch& operator=(const MemorySearch&) = delete;

    /// Hands the secret to `use`, and wipes it after.
    template <class Use>
    void reveal(Use use) const
    {
        std::array<char, kLong> plain;
        for (std::size_t i = 0; i < length_; ++i)
            plain[i] = static_cast<char>(disguised_[i] ^ kDisguise);
        use(std::string_view(plain.data(), length_));
        dmf::Secret::wipe(plain.data(), length_);
    }

    std::size_t count() const
    {
        std::ifstream maps("/proc/self/maps");
        const int memory = ::open("/proc/self/mem", O_RDONLY | O_CLOEXEC);
        std::size_t found = 0;
        for (std::string line; std::getline(maps, line);) {
            unsigned long begin = 0, end = 0;
            char rights[8] = "";
            if (std::sscanf(line.c_str(), "%lx-%lx %7s", &begin, &end, rights) == 3 && rights[1] == 'w')
                found += countIn(memory, begin, end);
        }
        ::close(memory);
        return found;
    }

private:
    static constexpr unsigned char kDisguise = 0x5A;
    static constexpr std::size_t kWindow = 1U << 20;

    std::size_t countIn(int memory, unsigned long begin, unsigned long end) const
    {
        std::size_t found = 0;
        for (unsigned long at = begin; at < end;) {
            const auto window = reinterpret_cast<unsigned long>(window_);
            if (at >= window && at < window + kWindow) {
                at = window + kWindow;
                continue;
            }
            unsigned long size = std::min<unsigned long>(end - at, kWindow);
            if (at < window && window < at + size)
                size = window - at;
            const ssize_t got = ::pread(memory, window_, size, static_cast<off_t>(at));
            if (got < static_cast<ssize_t>(sought_))
                break;
            found += countInWindow(static_cast<std::size_t>(got));
            at += size == end - at ? size : size - (sought_ - 1); // what lies across two windows counts too
        }
        return found;
    }
    std::size_t countInWindow(std::size_t size) const
    {
        const unsigned char* const sought = disguised_.data() + (length_ - sought_);
        std::size_t found = 0;
        for (unsigned char* at = window_;
             (at = static_cast<unsigned char*>(
                  std::memchr(at, sought[0] ^ kDisguise, static_cast<std::size_t>(window_ + size - at)))) != nullptr;
             ++at) {
            if (at + sought_ > window_ + size)
                break;
            std::size_t i = 0;
            while (i < sought_ && at[i] == (sought[i] ^ kDisguise))
                ++i;
            found += i == sought_ ? 1 : 0;
        }
        return found;
    }

    const std::size_t length_, sought_;
    std::vector<unsigned char> disguised_;
    unsigned char* window_ = nullptr;
};

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define DMF_SKIP_UNDER_SANITIZERS GTEST_SKIP() << "the sanitizers' own memory is too large to be searched"
#else
#define DMF_SKIP_UNDER_SANITIZERS static_cast<void>(0)
#endif

TEST(Wiping, LeavesNoCopyOfACredentialBehind)
{
    DMF_SKIP_UNDER_SANITIZERS;
    const MemorySearch secret;
    std::shared_ptr<ADMAuthenticationInfo> held[3];
    secret.reveal([&](std::string_view plain) {
        held[0] = ADMAuthenticationInfo::authenticationInfoWithUsername("eva", plain, 0);
        held[1] = ADMAuthenticationInfo::authenticationInfoWithWPAPassPhrase(plain);
        dmf::Data key = dmf::Data::fromText(plain);
        held[2] = ADMAuthenticationInfo::authenticationInfoWithWEPKeys(dmf::Array{"short", key});
        key.wipe();
    });
    std::size_t left = std::size(held);
    EXPECT_EQ(secret.count(), left) << "one place each, which is found while it is there";
    for (auto& each : held) {
        each.reset();
        EXPECT_EQ(secret.count(), --left);
    }
}

/// A credential with the key in a container; what the test has of the key itself is made where it stays, and wiped.
std::shared_ptr<ADMWEPAuthenticationInfo> heldKeys(std::string_view key, bool isInDictionary)
{
    const auto make = [&](dmf::Value& place) {
        std::destroy_at(&place);
        std::construct_at(&place, key);
    };
    const auto wipe = [](const dmf::Value& text) {
        dmf::Secret::wipe(const_cast<char*>(text.asString()->data()), text.asString()->size());
    };
    std::vector<dmf::Value> keys(2);
    make(keys[1]);
    std::vector<dmf::Dictionary::Entry> entries(1);
    make(entries[0].value);
    const dmf::Array array(std::move(keys));
    const dmf::Dictionary dictionary(std::move(entries));
    const auto held = isInDictionary ? ADMAuthenticationInfo::authenticationInfoWithWEPKeys(dictionary)
                                     : ADMAuthenticationInfo::authenticationInfoWithWEPKeys(array);
    wipe(array.at(1));
    wipe(dictionary.begin()->value);
    return held;
}

TEST(Wiping, LeavesNoCopyOfAShortKeyBehind)
{
    DMF_SKIP_UNDER_SANITIZERS;
    for (const bool isInDictionary : {false, true}) {
        const MemorySearch secret(MemorySearch::kShort);
        std::shared_ptr<ADMWEPAuthenticationInfo> held;
        // On a thread that ends: nobody uses its stack again, so what was left there is found.
        std::thread([&] {
            secret.reveal([&](std::string_view plain) { held = heldKeys(plain, isInDictionary); });
        }).join();
        EXPECT_EQ(secret.count(), 1U) << "found while it is there";
        held.reset();
        EXPECT_EQ(secret.count(), 0U);
    }
}

TEST(Wiping, LeavesNoCopyBehindOnTheWayToTheKeyringAndBack)
{
    DMF_SKIP_UNDER_SANITIZERS;
    KeyringFixture keyring;
    HostFixture machine;
    machine.setEnvironment("DBUS_SESSION_BUS_ADDRESS", keyring.bus.address());
    const auto printer = service("ipp://printer", "Model 9");
    const MemorySearch secret;
    secret.reveal([&](std::string_view plain) {
        EXPECT_TRUE(ADMAuthenticationInfo::authenticationInfoWithUsername("eva", plain, 0)
                        ->storeInKeychainForServiceInfo(printer));
    });
    EXPECT_TRUE(noKeyringThreadIsLeft());
    EXPECT_EQ(secret.count(), 0U);

    auto found = ADMUsernameAndPasswordAuthenticationInfo::initFromKeychainForServiceInfo(printer);
    ASSERT_TRUE(found);
    EXPECT_TRUE(noKeyringThreadIsLeft());
    EXPECT_EQ(secret.count(), 1U);
    found.reset();
    EXPECT_EQ(secret.count(), 0U);
}

} // namespace
