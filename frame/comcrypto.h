// SHA-1 (FIPS 180) and Base64 (standard alphabet) for the WS-Security digest.
#ifndef FRAME_COMCRYPTO_H
#define FRAME_COMCRYPTO_H

#include <stdint.h>

typedef struct {
    uint32_t hash[5];
    uint64_t length;  // bytes hashed so far
    unsigned char block[64];
} sha1_ctx_t;

void COM_sha1_begin(sha1_ctx_t* ctx);
void COM_sha1_hash(const void* data, unsigned length, sha1_ctx_t* ctx);
void COM_sha1_end(void* digest_out, sha1_ctx_t* ctx);
void COM_sha1_compile(sha1_ctx_t* ctx);
// 40 lower-case hexadecimal digits and a terminator (out holds 41 bytes).
char* COM_MakeStrSHA1(char* out, const char* data, int length);

// Encodes length bytes; out receives 4 * ceil(length / 3) characters and a terminator.
void COM_Base64Encode(char* out, const unsigned char* in, int length);
// Decodes at most outSize bytes: 0 for an empty text or one that starts with
// '=', characters outside the alphabet are skipped, the first '=' ends it.
// Returns the bytes decoded, or -1 when they would not fit in outSize.
int COM_Base64Decode(unsigned char* out, const char* in, int outSize);
char COM_Base2Chr(unsigned char value);
int COM_Chr2Base(char c);  // -1 outside the alphabet
void encodeblock(const unsigned char in[3], char out[4], int length);
void decodeblock(const unsigned char in[4], unsigned char out[3]);
int encode(char* out, const unsigned char* in, int length);
int decode(unsigned char* out, const char* in, int outSize);

// Byte value of two hexadecimal digits.
int hexToAscii(char high, char low);

#endif
