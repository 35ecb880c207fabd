#include "suite/remote/KTMd5Library.h"

#include <md5.h>

#include <cstdint>

namespace kt::md5
{
// What the contract leaves room for.
static_assert(sizeof(MD5_CTX) <= 88 && alignof(MD5_CTX) <= 8);

void Init(void* state) { MD5Init(static_cast<MD5_CTX*>(state)); }

void Update(void* state, const void* data, std::size_t size)
{
    MD5Update(static_cast<MD5_CTX*>(state), static_cast<const std::uint8_t*>(data), size);
}

void Final(unsigned char* digest, void* state) { MD5Final(digest, static_cast<MD5_CTX*>(state)); }
}  // namespace kt::md5
