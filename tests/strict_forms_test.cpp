// The strict forms of addresses, durations and URIs that setters and the
// ONVIF mode's stored values rely on, beside the camera's lenient checkers.
#include "state/checkers.h"
#include "state/schema_values.h"

#include <gtest/gtest.h>

TEST(StrictForms, IPv4IsFourShortDecimalPartsAndNothingElse)
{
    for (const char* good : {"0.0.0.0", "239.0.0.1", "255.255.255.255", "192.168.001.010"})
        EXPECT_TRUE(isStrictIPv4(good)) << good;
    for (const char* bad : {"", "1.2.3", "1.2.3.4.5", "1.2.3.4$(reboot)", "1.2.3.256", "1.2.3.0004", "1..2.3",
                            " 1.2.3.4", "1.2.3.4\n", "a.b.c.d", "1.2.3.-4", "1.2.3.4/24"})
        EXPECT_FALSE(isStrictIPv4(bad)) << bad;
    // The camera's own checker lets the shell text through; the strict form exists for that.
    EXPECT_EQ(checkIPv4AddressValid("1.2.3.4$(reboot)"), 1);
}

TEST(StrictForms, IPv6Literal)
{
    for (const char* good : {"::1", "fe80::1", "ff02::1:ff00:1", "2001:db8::192.0.2.1"})
        EXPECT_TRUE(isIPv6Literal(good)) << good;
    for (const char* bad : {"", "fe80::1%eth0", "[fe80::1]", "1::2::3", "ff02::1;reboot", "gggg::1", "NONE"})
        EXPECT_FALSE(isIPv6Literal(bad)) << bad;
}

TEST(StrictForms, XmlDuration)
{
    for (const char* good : {"PT60S", "PT0S", "PT1M30.5S", "P1DT2H", "P1Y2M3DT4H5M6S", "P3D"})
        EXPECT_TRUE(isXmlDuration(good)) << good;
    for (const char* bad : {"", "P", "PT", "60", "PT60", "PTS", "PT1.S", "P1.5D", "PT1S1M", "PT60S`reboot`",
                            "invalid", "-PT1S", "PT1H1H"})
        EXPECT_FALSE(isXmlDuration(bad)) << bad;
}

TEST(SchemaValues, DurationsAndUris)
{
    for (const char* yes : {"PT10S", "P1D", "P1Y2M3DT4H5M6.5S", "-PT1M", "PT0S", "P0D"})
        EXPECT_TRUE(isDurationText(yes)) << yes;
    for (const char* no : {"", "P", "PT", "P1DT", "PT1", "10S", "PT1S5M", "P1.5D", "PT.5S", "PT1.S", "<b>PT1S",
                           "PT1S ", "invalid"})
        EXPECT_FALSE(isDurationText(no)) << no;
    for (const char* yes : {"onvif://www.onvif.org/name/Camera", "onvif://x/a%20b", "urn:x?y=1#z"})
        EXPECT_TRUE(isUriText(yes)) << yes;
    for (const char* no : {"", "a b", "a<b", "a%2", "a%zz", "a\"b", "a\\b", "tab\there"})
        EXPECT_FALSE(isUriText(no)) << no;
}
