// MD5 and SHA-256, the two hashes HTTP digest clients choose between.
#include "frame/digests.h"

#include <stdio.h>
#include <string.h>

static uint32_t rotl(uint32_t x, int n) { return (x << n) | (x >> (32 - n)); }
static uint32_t rotr(uint32_t x, int n) { return (x >> n) | (x << (32 - n)); }

static const uint32_t MD5_K[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};
static const int MD5_R[64] = {7, 12, 17, 22, 7, 12, 17, 22, 7, 12, 17, 22, 7, 12, 17, 22,
                              5, 9,  14, 20, 5, 9,  14, 20, 5, 9,  14, 20, 5, 9,  14, 20,
                              4, 11, 16, 23, 4, 11, 16, 23, 4, 11, 16, 23, 4, 11, 16, 23,
                              6, 10, 15, 21, 6, 10, 15, 21, 6, 10, 15, 21, 6, 10, 15, 21};

static const uint32_t SHA256_K[64] = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

static void md5Block(HashContext* ctx)
{
    uint32_t m[16];
    for (int i = 0; i < 16; ++i)
        m[i] = (uint32_t)ctx->block[4 * i] | (uint32_t)ctx->block[4 * i + 1] << 8 |
               (uint32_t)ctx->block[4 * i + 2] << 16 | (uint32_t)ctx->block[4 * i + 3] << 24;
    uint32_t a = ctx->state[0], b = ctx->state[1], c = ctx->state[2], d = ctx->state[3];
    for (int i = 0; i < 64; ++i) {
        uint32_t f;
        int g;
        if (i < 16) {
            f = (b & c) | (~b & d);
            g = i;
        } else if (i < 32) {
            f = (d & b) | (~d & c);
            g = (5 * i + 1) % 16;
        } else if (i < 48) {
            f = b ^ c ^ d;
            g = (3 * i + 5) % 16;
        } else {
            f = c ^ (b | ~d);
            g = (7 * i) % 16;
        }
        uint32_t t = d;
        d = c;
        c = b;
        b = b + rotl(a + f + MD5_K[i] + m[g], MD5_R[i]);
        a = t;
    }
    ctx->state[0] += a;
    ctx->state[1] += b;
    ctx->state[2] += c;
    ctx->state[3] += d;
}

static void sha256Block(HashContext* ctx)
{
    uint32_t w[64];
    for (int i = 0; i < 16; ++i)
        w[i] = (uint32_t)ctx->block[4 * i] << 24 | (uint32_t)ctx->block[4 * i + 1] << 16 |
               (uint32_t)ctx->block[4 * i + 2] << 8 | (uint32_t)ctx->block[4 * i + 3];
    for (int i = 16; i < 64; ++i) {
        uint32_t s0 = rotr(w[i - 15], 7) ^ rotr(w[i - 15], 18) ^ (w[i - 15] >> 3);
        uint32_t s1 = rotr(w[i - 2], 17) ^ rotr(w[i - 2], 19) ^ (w[i - 2] >> 10);
        w[i] = w[i - 16] + s0 + w[i - 7] + s1;
    }
    uint32_t v[8];
    memcpy(v, ctx->state, sizeof v);
    for (int i = 0; i < 64; ++i) {
        uint32_t s1 = rotr(v[4], 6) ^ rotr(v[4], 11) ^ rotr(v[4], 25);
        uint32_t ch = (v[4] & v[5]) ^ (~v[4] & v[6]);
        uint32_t t1 = v[7] + s1 + ch + SHA256_K[i] + w[i];
        uint32_t s0 = rotr(v[0], 2) ^ rotr(v[0], 13) ^ rotr(v[0], 22);
        uint32_t maj = (v[0] & v[1]) ^ (v[0] & v[2]) ^ (v[1] & v[2]);
        uint32_t t2 = s0 + maj;
        memmove(v + 1, v, 7 * sizeof v[0]);
        v[4] += t1;
        v[0] = t1 + t2;
    }
    for (int i = 0; i < 8; ++i)
        ctx->state[i] += v[i];
}

void hashBegin(HashContext* ctx, int sha256)
{
    static const uint32_t MD5_START[4] = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
    static const uint32_t SHA256_START[8] = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                             0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
    memset(ctx, 0, sizeof *ctx);
    ctx->sha256 = sha256;
    if (sha256)
        memcpy(ctx->state, SHA256_START, sizeof SHA256_START);
    else
        memcpy(ctx->state, MD5_START, sizeof MD5_START);
}

void hashAdd(HashContext* ctx, const void* data, size_t length)
{
    const unsigned char* p = (const unsigned char*)data;
    for (size_t i = 0; i < length; ++i) {
        ctx->block[ctx->length % 64] = p[i];
        ++ctx->length;
        if (ctx->length % 64 == 0)
            ctx->sha256 ? sha256Block(ctx) : md5Block(ctx);
    }
}

void hashHexEnd(HashContext* ctx, char* out)
{
    uint64_t bits = ctx->length * 8;
    unsigned char pad = 0x80, zero = 0;
    hashAdd(ctx, &pad, 1);
    while (ctx->length % 64 != 56)
        hashAdd(ctx, &zero, 1);
    unsigned char size[8];
    for (int i = 0; i < 8; ++i)
        size[i] = (unsigned char)(ctx->sha256 ? bits >> (56 - 8 * i) : bits >> (8 * i));
    hashAdd(ctx, size, 8);
    int words = ctx->sha256 ? 8 : 4;
    for (int i = 0; i < words; ++i)
        for (int j = 0; j < 4; ++j) {
            unsigned byte = ctx->sha256 ? ctx->state[i] >> (24 - 8 * j) & 0xff : ctx->state[i] >> (8 * j) & 0xff;
            snprintf(out + 8 * i + 2 * j, 3, "%02x", byte);
        }
    out[8 * words] = 0;
}
