#include "suite/support/KTPassword.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <array>
#include <charconv>
#include <cstdint>
#include <optional>

namespace
{
// Multiples of three bytes, so that their Base64 needs no padding.
constexpr std::size_t saltSize = 18;
constexpr std::size_t keySize = 33;

constexpr unsigned long long mostMemory = 256ULL << 20;  // bytes

struct Stored
{
    unsigned logCost = 15;
    unsigned blockSize = 8;
    unsigned parallelism = 3;
    std::array<unsigned char, saltSize> salt{};
    std::array<unsigned char, keySize> key{};

    [[nodiscard]] unsigned long long Memory() const { return 128ULL * blockSize * (1ULL << logCost); }
};

bool Skip(std::string_view& text, std::string_view expected)
{
    if (!text.starts_with(expected)) return false;
    text.remove_prefix(expected.size());
    return true;
}

bool TakeNumber(std::string_view& text, unsigned low, unsigned high, unsigned& out)
{
    const auto [end, result] = std::from_chars(text.data(), text.data() + text.size(), out);
    // No leading zeros: one hash has one text.
    if (result != std::errc() || text[0] == '0' || out < low || out > high) return false;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return true;
}

bool IsBase64(std::string_view text)
{
    for (const char c : text)
        if (!((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '+' || c == '/'))
            return false;
    return true;
}

template <std::size_t size>
bool TakeBytes(std::string_view& text, std::array<unsigned char, size>& out)
{
    constexpr std::size_t characters = size / 3 * 4;
    const std::string_view base64 = text.substr(0, characters);
    if (base64.size() != characters || !IsBase64(base64)) return false;
    text.remove_prefix(characters);
    return EVP_DecodeBlock(out.data(), reinterpret_cast<const unsigned char*>(base64.data()), characters) == size;
}

std::optional<Stored> Parse(std::string_view text)
{
    Stored stored;
    const bool whole = Skip(text, "$scrypt$ln=") && TakeNumber(text, 10, 24, stored.logCost) && Skip(text, ",r=") &&
                       TakeNumber(text, 1, 32, stored.blockSize) && Skip(text, ",p=") &&
                       TakeNumber(text, 1, 16, stored.parallelism) && Skip(text, "$") && TakeBytes(text, stored.salt) &&
                       Skip(text, "$") && TakeBytes(text, stored.key) && text.empty();
    if (!whole || stored.Memory() > mostMemory) return std::nullopt;
    return stored;
}

bool Derive(std::string_view password, const Stored& stored, std::array<unsigned char, keySize>& key)
{
    // Besides its large block the derivation needs a small one for each lane.
    const unsigned long long lanes = 128ULL * stored.blockSize * (stored.parallelism + 2ULL);
    return EVP_PBE_scrypt(password.data(), password.size(), stored.salt.data(), stored.salt.size(),
                          1ULL << stored.logCost, stored.blockSize, stored.parallelism, stored.Memory() + lanes + 65536,
                          key.data(), key.size()) == 1;
}

template <std::size_t size>
std::string Base64(const std::array<unsigned char, size>& bytes)
{
    unsigned char text[size / 3 * 4 + 1];
    EVP_EncodeBlock(text, bytes.data(), size);
    return reinterpret_cast<const char*>(text);
}
}  // namespace

bool KTPassword::Make(std::string_view password, std::string& hash)
{
    Stored stored;
    if (RAND_bytes(stored.salt.data(), saltSize) != 1 || !Derive(password, stored, stored.key)) return false;
    hash = "$scrypt$ln=" + std::to_string(stored.logCost) + ",r=" + std::to_string(stored.blockSize) +
           ",p=" + std::to_string(stored.parallelism) + '$' + Base64(stored.salt) + '$' + Base64(stored.key);
    return true;
}

bool KTPassword::Verify(std::string_view password, std::string_view hash)
{
    const std::optional<Stored> stored = Parse(hash);
    std::array<unsigned char, keySize> key{};
    return stored && Derive(password, *stored, key) && CRYPTO_memcmp(key.data(), stored->key.data(), keySize) == 0;
}

bool KTPassword::IsHash(std::string_view text) { return Parse(text).has_value(); }
