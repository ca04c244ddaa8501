// SHA-1 and Base64, written here so the service needs no crypto library.
#include "frame/comcrypto.h"

#include <stdio.h>
#include <string.h>

static uint32_t rotl(uint32_t v, int n) { return (v << n) | (v >> (32 - n)); }

void COM_sha1_begin(sha1_ctx_t* ctx)
{
    ctx->hash[0] = 0x67452301;
    ctx->hash[1] = 0xEFCDAB89;
    ctx->hash[2] = 0x98BADCFE;
    ctx->hash[3] = 0x10325476;
    ctx->hash[4] = 0xC3D2E1F0;
    ctx->length = 0;
}

// One 64-byte block into the hash state.
void COM_sha1_compile(sha1_ctx_t* ctx)
{
    uint32_t w[80];
    for (int i = 0; i < 16; ++i)
        w[i] = (uint32_t)ctx->block[4 * i] << 24 | (uint32_t)ctx->block[4 * i + 1] << 16 |
               (uint32_t)ctx->block[4 * i + 2] << 8 | ctx->block[4 * i + 3];
    for (int i = 16; i < 80; ++i)
        w[i] = rotl(w[i - 3] ^ w[i - 8] ^ w[i - 14] ^ w[i - 16], 1);
    uint32_t a = ctx->hash[0], b = ctx->hash[1], c = ctx->hash[2], d = ctx->hash[3], e = ctx->hash[4];
    for (int i = 0; i < 80; ++i) {
        uint32_t f, k;
        if (i < 20) { f = (b & c) | (~b & d); k = 0x5A827999; }
        else if (i < 40) { f = b ^ c ^ d; k = 0x6ED9EBA1; }
        else if (i < 60) { f = (b & c) | (b & d) | (c & d); k = 0x8F1BBCDC; }
        else { f = b ^ c ^ d; k = 0xCA62C1D6; }
        uint32_t t = rotl(a, 5) + f + e + k + w[i];
        e = d; d = c; c = rotl(b, 30); b = a; a = t;
    }
    ctx->hash[0] += a; ctx->hash[1] += b; ctx->hash[2] += c; ctx->hash[3] += d; ctx->hash[4] += e;
}

void COM_sha1_hash(const void* data, unsigned length, sha1_ctx_t* ctx)
{
    const unsigned char* p = (const unsigned char*)data;
    while (length > 0) {
        unsigned used = (unsigned)(ctx->length % 64);
        unsigned take = 64 - used < length ? 64 - used : length;
        memcpy(ctx->block + used, p, take);
        ctx->length += take;
        p += take;
        length -= take;
        if (ctx->length % 64 == 0)
            COM_sha1_compile(ctx);
    }
}

void COM_sha1_end(void* digest_out, sha1_ctx_t* ctx)
{
    uint64_t bits = ctx->length * 8;
    unsigned char pad = 0x80;
    COM_sha1_hash(&pad, 1, ctx);
    pad = 0;
    while (ctx->length % 64 != 56)
        COM_sha1_hash(&pad, 1, ctx);
    unsigned char len[8];
    for (int i = 0; i < 8; ++i)
        len[i] = (unsigned char)(bits >> (56 - 8 * i));
    COM_sha1_hash(len, 8, ctx);
    unsigned char* out = (unsigned char*)digest_out;
    for (int i = 0; i < 20; ++i)
        out[i] = (unsigned char)(ctx->hash[i / 4] >> (24 - 8 * (i % 4)));
}

char* COM_MakeStrSHA1(char* out, const char* data, int length)
{
    sha1_ctx_t ctx;
    unsigned char digest[20];
    COM_sha1_begin(&ctx);
    COM_sha1_hash(data, (unsigned)length, &ctx);
    COM_sha1_end(digest, &ctx);
    for (int i = 0; i < 20; ++i)
        snprintf(out + 2 * i, 3, "%02x", digest[i]);
    return out;
}

static const char ALPHABET[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

char COM_Base2Chr(unsigned char value) { return ALPHABET[value & 63]; }

int COM_Chr2Base(char c)
{
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    if (c == '+') return 62;
    if (c == '/') return 63;
    return -1;
}

void encodeblock(const unsigned char in[3], char out[4], int length)
{
    out[0] = COM_Base2Chr(in[0] >> 2);
    out[1] = COM_Base2Chr((unsigned char)((in[0] & 3) << 4 | (length > 1 ? in[1] >> 4 : 0)));
    out[2] = length > 1 ? COM_Base2Chr((unsigned char)((in[1] & 15) << 2 | (length > 2 ? in[2] >> 6 : 0))) : '=';
    out[3] = length > 2 ? COM_Base2Chr(in[2] & 63) : '=';
}

void decodeblock(const unsigned char in[4], unsigned char out[3])
{
    out[0] = (unsigned char)(in[0] << 2 | in[1] >> 4);
    out[1] = (unsigned char)(in[1] << 4 | in[2] >> 2);
    out[2] = (unsigned char)(in[2] << 6 | in[3]);
}

int encode(char* out, const unsigned char* in, int length)
{
    int o = 0;
    for (int i = 0; i < length; i += 3) {
        unsigned char block[3] = {0, 0, 0};
        int n = length - i < 3 ? length - i : 3;
        memcpy(block, in + i, (size_t)n);
        encodeblock(block, out + o, n);
        o += 4;
    }
    out[o] = 0;
    return o;
}

int decode(unsigned char* out, const char* in, int outSize)
{
    if (!in[0] || in[0] == '=')
        return 0;
    unsigned char quad[4];
    int have = 0, o = 0;
    for (const char* p = in; *p && *p != '='; ++p) {
        int v = COM_Chr2Base(*p);
        if (v < 0)
            continue;
        quad[have++] = (unsigned char)v;
        if (have == 4) {
            if (o + 3 > outSize)
                return -1;
            decodeblock(quad, out + o);
            o += 3;
            have = 0;
        }
    }
    if (have > 1) {
        unsigned char bytes[3];
        for (int i = have; i < 4; ++i)
            quad[i] = 0;
        decodeblock(quad, bytes);
        if (o + have - 1 > outSize)
            return -1;
        memcpy(out + o, bytes, (size_t)(have - 1));
        o += have - 1;
    }
    return o;
}

void COM_Base64Encode(char* out, const unsigned char* in, int length) { encode(out, in, length); }

int COM_Base64Decode(unsigned char* out, const char* in, int outSize) { return decode(out, in, outSize); }

int hexToAscii(char high, char low)
{
    int h = high >= 'a' ? high - 'a' + 10 : high >= 'A' ? high - 'A' + 10 : high - '0';
    int l = low >= 'a' ? low - 'a' + 10 : low >= 'A' ? low - 'A' + 10 : low - '0';
    return (h << 4) | l;
}
