// MD5 (RFC 1321) and SHA-256 (FIPS 180-4) for HTTP digest authentication.
#ifndef FRAME_DIGESTS_H
#define FRAME_DIGESTS_H

#include <stddef.h>
#include <stdint.h>

struct HashContext {
    uint32_t state[8];
    uint64_t length;  // bytes hashed so far
    unsigned char block[64];
    int sha256;       // 0: MD5
};

void hashBegin(HashContext* ctx, int sha256);
void hashAdd(HashContext* ctx, const void* data, size_t length);
// Lower-case hexadecimal digest and a terminator: out holds 65 bytes.
void hashHexEnd(HashContext* ctx, char* out);

#endif
