// The value checkers' accept and refuse sets, quirks included.
#include "state/checkers.h"
#include "state/shm.h"

#include <gtest/gtest.h>
#include <string.h>
#include <string>

namespace {

TEST(Checkers, TextCheckers)
{
    struct Case { int (*check)(const char*); const char* text; int result; };
    const Case cases[] = {
        {CheckFloat, "1.5", 0}, {CheckFloat, "-2", 0}, {CheckFloat, "3e-2", 0}, {CheckFloat, ".5", 0},
        {CheckFloat, "", 0}, {CheckFloat, ":5", 0}, {CheckFloat, "?", 0}, {CheckFloat, "1.2.3", 1},
        {CheckFloat, "abc", 1}, {CheckFloat, "-a", 1}, {CheckFloat, "1-2", 1}, {CheckFloat, "1e2.0", 1},
        {CheckFloat, "1e2e3", 1}, {CheckFloat, ".5.", 1}, {CheckFloat, "@", 1},
        {CheckInt, "", 0}, {CheckInt, "0123", 0}, {CheckInt, "-1", 1}, {CheckInt, "1a", 1},
        {CheckEncoding, "H264", 0}, {CheckEncoding, "JPEG", 0}, {CheckEncoding, "MPEG4", 0}, {CheckEncoding, "h264", 1},
        {CheckType, "IPv4", 0}, {CheckType, "IPv6", 0}, {CheckType, "ipv4", 1},
        {CheckTimeout, "invalid", 1}, {CheckTimeout, "PT10S", 0}, {CheckTimeout, "", 0},
        {CheckChar, "", 0}, {CheckChar, "a-Z_0. 9", 0}, {CheckChar, "a/b", 1}, {CheckChar, "a\nb", 1},
        {CheckChar_including_space, "with space", 0}, {CheckChar_including_space, "semi;", 1},
        {CheckBitrateRange, "63", 1}, {CheckBitrateRange, "64", 0}, {CheckBitrateRange, "8192", 0},
        {CheckBitrateRange, "8193", 1}, {CheckBitrateRange, "", 1}, {CheckBitrateRange, "1e3", 1},
        {CheckPortRange, "0", 0}, {CheckPortRange, "65535", 0}, {CheckPortRange, "65536", 1}, {CheckPortRange, "-1", 1},
        {CheckTTLRange, "255", 0}, {CheckTTLRange, "256", 1},
        {checkIPv4AddressValid, "192.168.0.1", 1}, {checkIPv4AddressValid, "255.255.255.255", 0},
        {checkIPv4AddressValid, "256.1.1.1", 0}, {checkIPv4AddressValid, "1.2.3", 0},
        {checkIPv4AddressValid, "a.b.c.d", 1}, {checkIPv4AddressValid, "1.2.3.4.999", 1},
        {checkIPv4AddressValid, "1.2.3.4 and 999 more", 1},  // only 16 characters are looked at
        {CheckPresetname, "", 0}, {CheckPresetname, "a&touch x", 0}, {CheckPresetname, "it's $x ~!#%&", 0}, {CheckPresetname, "$(reboot)", 1},
        {CheckPresetname, "a,b", 1}, {CheckPresetname, "a/b", 1}, {CheckPresetname, "a\"b", 1},
        {CheckPresetname, "tab\tx", 1}, {CheckPresetname, "del\x7f", 1}, {CheckPresetname, "caf\xc3\xa9", 0},
        {CheckH264Profile, "anything", 0}, {CheckMPEG4Profile, "", 0},
    };
    for (const Case& c : cases)
        EXPECT_EQ(c.check(c.text), c.result) << "'" << c.text << "'";
    EXPECT_EQ(CheckPresetname(std::string(64, 'a').c_str()), 0);
    EXPECT_EQ(CheckPresetname(std::string(65, 'a').c_str()), 1);
}

TEST(Checkers, CaseFoldingCheckersRewriteTheCallersText)
{
    struct Case { int (*check)(char*); const char* in; int result; const char* out; };
    const Case cases[] = {
        {CheckBool, "TRUE", 0, "true"}, {CheckBool, "False", 0, "false"}, {CheckBool, "yes", 1, "yes"},
        {CheckBool_tolower, "ANYthing", 0, "anything"},
        {Check_ON_OFF, "on", 0, "ON"}, {Check_ON_OFF, "auto", 1, "AUTO"},
        {Check_ON_OFF_AUTO, "auto", 0, "AUTO"}, {Check_AUTO_MANUAL, "Manual", 0, "MANUAL"},
        {Check_AUTO_MANUAL, "on", 1, "ON"},
    };
    for (const Case& c : cases) {
        char text[32];
        strcpy(text, c.in);
        EXPECT_EQ(c.check(text), c.result) << c.in;
        EXPECT_STREQ(text, c.out);
    }
}

TEST(Checkers, RangesAndSampleRateByVariant)
{
    EXPECT_EQ(CheckInRange(5, 1, 10), 0);
    EXPECT_EQ(CheckInRange(11, 1, 10), 1);
    EXPECT_EQ(CheckInRange(-99, 0, 0), 0);
    EXPECT_EQ(CheckFloatRange(1.5f, 0.0f, 1.0f), 1);
    EXPECT_EQ(CheckFloatRange(-7.0f, 0.0f, 0.0f), 0);

    int words[ONVIF_SHM_WORDS] = {0};
    G_shared_memory = words;
    EXPECT_EQ(CheckSampleRate("8000"), 0);
    EXPECT_EQ(CheckSampleRate("8"), 1);
    words[VARIANT_CODE] = VARIANT_LENIENT;
    EXPECT_EQ(CheckSampleRate("16"), 0);
    EXPECT_EQ(CheckSampleRate("16000"), 1);
    G_shared_memory = nullptr;
}

}  // namespace
