#include "host/KTDigest.h"
#include "suite/remote/KTMd5Library.h"

void MD5Init(MD5_CTX* context) { kt::md5::Init(context->state); }

void MD5Update(MD5_CTX* context, const void* data, std::size_t size) { kt::md5::Update(context->state, data, size); }

void MD5Final(unsigned char digest[md5DigestSize], MD5_CTX* context) { kt::md5::Final(digest, context->state); }
