// Stored forms of passwords.
#pragma once

#include <string>
#include <string_view>

/// A slow, salted hash of a password, and its test.
///
/// Format:  "$scrypt$ln=15,r=8,p=3$SALT$KEY": the base-2 logarithm of the cost, block size and parallelism of scrypt
///          (RFC 7914), 18 bytes of salt and 33 bytes of key, both in Base64, which then needs no padding. The text says
///          its own costs, so that they can rise without making older hashes useless.
/// Units:   a password is the bytes of its UTF-8.
/// Threads: any. One test takes some tenths of a second and 32 MiB.
class KTPassword
{
public:
    /// A hash with a salt of its own. False when the system gives no random numbers or no memory.
    static bool Make(std::string_view password, std::string& hash);

    /// Whether the hash was made of this password; false for what is no hash. Compares in constant time.
    [[nodiscard]] static bool Verify(std::string_view password, std::string_view hash);

    /// Whether the text is a hash that Verify can work with, within 256 MiB of memory.
    [[nodiscard]] static bool IsHash(std::string_view text);
};
