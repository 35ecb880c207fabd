// The library's RFC 1321 calls under names of their own: its header and the contract's both say MD5_CTX.
#pragma once

#include <cstddef>

/// `state` is room for the library's context, 88 bytes aligned to 8.
namespace kt::md5
{
void Init(void* state);
void Update(void* state, const void* data, std::size_t size);
void Final(unsigned char* digest, void* state);
}  // namespace kt::md5
