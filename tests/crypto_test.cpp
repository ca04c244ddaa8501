// SHA-1 against the FIPS 180 examples, Base64 against RFC 4648, and the
// decoder's kept quirks.
#include "frame/comcrypto.h"
#include "frame/security.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <string.h>
#include <string>

TEST(Crypto, Sha1MatchesThePublishedExamples)
{
    struct Case { std::string input; const char* hex; };
    const Case cases[] = {
        {"abc", "a9993e364706816aba3e25717850c26c9cd0d89d"},
        {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq", "84983e441c3bd26ebaae4aa1f95129e5e54670f1"},
        {"", "da39a3ee5e6b4b0d3255bfef95601890afd80709"},
        {std::string(1000000, 'a'), "34aa973cd4c4daa4f61eeb2bdbad27316534016f"},
    };
    for (const Case& c : cases) {
        char out[41];
        COM_MakeStrSHA1(out, c.input.data(), (int)c.input.size());
        EXPECT_STREQ(out, c.hex) << c.input.size();
    }
    // Fed in uneven pieces, the hash is the same as in one piece.
    std::string text(200, 'q');
    sha1_ctx_t ctx;
    unsigned char a[20], b[20];
    COM_sha1_begin(&ctx);
    for (size_t i = 0; i < text.size(); i += 7)
        COM_sha1_hash(text.data() + i, (unsigned)std::min<size_t>(7, text.size() - i), &ctx);
    COM_sha1_end(a, &ctx);
    COM_sha1_begin(&ctx);
    COM_sha1_hash(text.data(), (unsigned)text.size(), &ctx);
    COM_sha1_end(b, &ctx);
    EXPECT_EQ(memcmp(a, b, 20), 0);
}

TEST(Crypto, Base64MatchesRfc4648AndKeepsItsDecoderQuirks)
{
    const char* vectors[][2] = {{"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"},
                                {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"}};
    for (auto& v : vectors) {
        char out[16];
        COM_Base64Encode(out, (const unsigned char*)v[0], (int)strlen(v[0]));
        EXPECT_STREQ(out, v[1]);
        unsigned char back[16] = {0};
        EXPECT_EQ(COM_Base64Decode(back, v[1], sizeof back), (int)strlen(v[0]));
        EXPECT_STREQ((char*)back, v[0]);
    }
    struct Case { const char* in; int n; const char* out; };
    for (const Case& c : {Case{"=Zm9v", 0, ""}, Case{"Zm 9\nv", 3, "foo"}, Case{"Zg==Zm9v", 1, "f"},
                          Case{"Zm9v!!Yg", 4, "foob"}}) {
        unsigned char back[16] = {0};
        EXPECT_EQ(COM_Base64Decode(back, c.in, sizeof back), c.n) << c.in;
        EXPECT_STREQ((char*)back, c.out) << c.in;
    }
    unsigned char small[2];
    EXPECT_EQ(COM_Base64Decode(small, "Zm9v", sizeof small), -1);  // never past the buffer
    EXPECT_EQ(hexToAscii('f', 'F'), 255);
    EXPECT_EQ(hexToAscii('0', 'a'), 10);
}

TEST(Crypto, DigestCheckFollowsTheUsernameTokenProfile)
{
    // Base64(SHA-1(nonce + created + password)) for the profile's own example values.
    const char* nonce = "LKqI6G/AikKCQrN0zqZFlg==";
    const char* created = "2010-09-16T07:50:45Z";
    const char* digest = "tuOSpGlFlIXsozq4HFNeeGeFLEI=";
    EXPECT_EQ(check_password_digest(nonce, created, "userpassword", digest), 1);
    EXPECT_EQ(check_password_digest(nonce, created, "userpassworD", digest), 0);
    EXPECT_EQ(check_password_digest(nonce, "", "userpassword", digest), 0);
    EXPECT_EQ(check_password_digest("LKqI6G/AikKCQrN0zqZFl", created, "userpassword", digest), 0);
    EXPECT_EQ(check_password_digest(nonce, created, "userpassword", "tuOSpGlFlIXsozq4HFNeeGeFLEI"), 0);
    EXPECT_EQ(check_password_digest(nonce, created, "userpassword", "tuOS"), 0);  // a prefix is no digest
    EXPECT_EQ(check_password_digest(nonce, created, "userpassword", ""), 0);
    // Without a nonce the digest covers the creation time and the password.
    EXPECT_EQ(check_password_digest("", created, "userpassword", "Ce4KJ3PLZm6rd1JDN/7tTbDBS+E="), 1);
}
