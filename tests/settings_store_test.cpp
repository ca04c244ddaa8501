// Settings files: key rewrites through a work copy, the line reader, and the
// error log's quoting.
#include "state/config.h"
#include "state/paths.h"
#include "state/shm.h"
#include "tests/fixture.h"

#include <dirent.h>
#include <stdlib.h>
#include <string.h>

namespace {

class SettingsStore : public CameraTest {
protected:
    void SetUp() override
    {
        CameraTest::SetUp();
        setenv("ONVIF_ROOT", root.c_str(), 1);
        G_shared_memory = words;
    }
    void TearDown() override
    {
        G_shared_memory = nullptr;
        unsetenv("ONVIF_ROOT");
        CameraTest::TearDown();
    }
    // Files in tmp/onvif/ other than the ones the factory put there.
    int strayFiles()
    {
        int n = 0;
        DIR* d = opendir(path("tmp/onvif").c_str());
        while (dirent* e = readdir(d))
            n += strstr(e->d_name, ".conf.") != nullptr;
        closedir(d);
        return n;
    }
};

TEST_F(SettingsStore, UpdateReplacesEveryLineHoldingTheKeyAndAddsNone)
{
    writeFile("tmp/onvif/onvif.conf",
              "A=1\nDNSInformation.SearchDomain=old\nDNSInformation.SearchDomain=dup\n"
              "Rate=100%\nX.DNSInformation.SearchDomain=tail\nlast\n");
    EXPECT_EQ(Update_ONVIF_CONF_FILE("DNSInformation.SearchDomain=", ""), 0);
    EXPECT_EQ(readFile("tmp/onvif/onvif.conf"),
              "A=1\nDNSInformation.SearchDomain=\nDNSInformation.SearchDomain=\n"
              "Rate=100%\nDNSInformation.SearchDomain=\nlast\n");
    const std::string before = readFile("tmp/onvif/onvif.conf");
    EXPECT_EQ(Update_ONVIF_CONF_FILE("Missing.Key=", "v"), 0);
    EXPECT_EQ(readFile("tmp/onvif/onvif.conf"), before);
    EXPECT_EQ(strayFiles(), 0);

    removeFile("tmp/onvif/onvif.conf");
    EXPECT_EQ(Update_ONVIF_CONF_FILE("A=", "2"), -1);
    EXPECT_FALSE(exists("tmp/onvif/onvif.conf"));
}

TEST_F(SettingsStore, LongLinesAreCopiedWhole)
{
    std::string longLine = "Long=" + std::string(3000, 'x') + "A=\n";
    writeFile("tmp/onvif/onvif.conf", longLine + "A=1\n" + "B=" + std::string(3000, 'b') + "\nC=1\n");
    EXPECT_EQ(Update_ONVIF_CONF_FILE("A=", "2"), 0);
    EXPECT_EQ(Update_ONVIF_CONF_FILE("B=", "short"), 0);
    EXPECT_EQ(readFile("tmp/onvif/onvif.conf"), longLine + "A=2\nB=short\nC=1\n");
}

TEST_F(SettingsStore, LineReaderScansOneLineAtATime)
{
    writeFile("tmp/onvif/x.conf", "Name=first word\nUseCount=3\nModel=IP Dome  A\n" + std::string(600, 'y') + "\n");
    FILE* f = fopenRoot("/tmp/onvif/x.conf", "r");
    ASSERT_NE(f, nullptr);
    char dest[8];
    EXPECT_STREQ(findONVIFConfigurationFile(f, "Name=%s\n", dest, sizeof dest), "first");
    EXPECT_STREQ(findONVIFConfigurationFile(f, "Name=%s\n", dest, sizeof dest), "");  // not in order: empty
    EXPECT_STREQ(findONVIFConfigurationFile(f, "Model=%[^\n]\n", dest, sizeof dest), "IP Dome");  // bounded
    fclose(f);
}

TEST_F(SettingsStore, LogLinesLandWholeAndRunNothing)
{
    const char* hostile[] = {"a\"b", "back\\slash", "$(touch pwned)", "`touch pwned`", "two\nlines", "it's",
                             "%s%n"};
    for (const char* value : hostile)
        logServiceError("Test", "value=%s", value);
    EXPECT_EQ(errorLog(),
              "onvifService:Test:value=a\"b\nonvifService:Test:value=back\\slash\n"
              "onvifService:Test:value=$(touch pwned)\nonvifService:Test:value=`touch pwned`\n"
              "onvifService:Test:value=two lines\nonvifService:Test:value=it's\nonvifService:Test:value=%s%n\n");
    EXPECT_FALSE(exists("pwned"));
}

TEST_F(SettingsStore, PathsAndTokens)
{
    char out[256];
    EXPECT_EQ(std::string(resolvePath("/tmp/onvif/a", out, sizeof out)), root + "/tmp/onvif/a");
    char quoted[64];
    EXPECT_EQ(shellQuote("it's", quoted, sizeof quoted), 1);
    EXPECT_STREQ(quoted, "'it'\\''s'");
    EXPECT_EQ(shellQuote(std::string(100, 'a').c_str(), quoted, sizeof quoted), 0);
    for (const char* good : {"Profile1", "a-b_c.d", "VideoEncoder_1"})
        EXPECT_EQ(isSafeFileToken(good), 1) << good;
    for (const char* bad : {"", ".", "..", "../x", "a/b", "a..b", "a\nb", "a b", "$(x)"})
        EXPECT_EQ(isSafeFileToken(bad), 0) << bad;
}

}  // namespace
