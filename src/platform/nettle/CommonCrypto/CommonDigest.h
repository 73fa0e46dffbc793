#pragma once

// The digest functions of macOS for other systems, on top of Nettle, which selects the processor's
// instructions at run time. The return values mean nothing, as on macOS.

#include <nettle/sha2.h>

#include <cstdint>

// NOLINTBEGIN(readability-identifier-naming): macOS's names.
using CC_LONG = std::uint32_t;  // bytes
using CC_SHA256_CTX = sha256_ctx;
inline constexpr int CC_SHA256_DIGEST_LENGTH = 32;  // bytes

inline int CC_SHA256_Init(CC_SHA256_CTX* context) {
    nettle_sha256_init(context);
    return 1;
}

inline int CC_SHA256_Update(CC_SHA256_CTX* context, const void* bytes, CC_LONG size) {
    nettle_sha256_update(context, size, static_cast<const std::uint8_t*>(bytes));
    return 1;
}

inline int CC_SHA256_Final(unsigned char* digest, CC_SHA256_CTX* context) {
    nettle_sha256_digest(context, CC_SHA256_DIGEST_LENGTH, digest);
    return 1;
}
// NOLINTEND(readability-identifier-naming)
