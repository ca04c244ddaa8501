// Settings files: the line reader, bounded formats, the error log's quoting,
// paths and tokens.
#include "state/config.h"
#include "state/paths.h"
#include "state/shm.h"
#include "tests/fixture.h"

#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

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
};

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

// Readers that moved off stdio must see the lines fgets gave them, pieces
// of long lines and a last line without its line feed included.
TEST_F(SettingsStore, SettingsLinesAreTheLinesFgetsGives)
{
    std::string crossing;
    for (int i = 0; crossing.size() < 9000; ++i)
        crossing += "Key" + std::to_string(i) + "=" + std::string(i % 97, 'v') + "\n";
    const std::string contents[] = {"", "A=1", "A=1\nB=2\n", "\n\nA=\n", std::string(511, 'x') + "\nB=2",
                                    std::string(512, 'y') + "\n", std::string(1500, 'z') + "\nEnd=1\n",
                                    std::string("A=1\0hidden\nB=2\n", 16), crossing};
    for (const std::string& content : contents) {
        writeFile("tmp/onvif/lines.conf", content);
        for (size_t n : {2, 256, 512}) {
            std::vector<std::string> expected, got;
            FILE* f = fopenRoot("/tmp/onvif/lines.conf", "r");
            ASSERT_NE(f, nullptr);
            char line[512];
            while (fgets(line, (int)n, f))
                expected.push_back(line);
            fclose(f);
            SettingsLines r;
            ASSERT_EQ(openSettingsLines(&r, "/tmp/onvif/lines.conf"), 1);
            while (char* piece = nextSettingsLine(&r, n)) {
                got.push_back(piece);
                memset(piece, '#', strlen(piece));  // callers cut lines in place
            }
            closeSettingsLines(&r);
            EXPECT_EQ(got, expected) << content.size() << " bytes, n=" << n;
        }
    }
    SettingsLines r;
    EXPECT_EQ(openSettingsLines(&r, "/tmp/onvif/none.conf"), 0);
}

TEST_F(SettingsStore, PlainFormatsAreJoinedAsPrintfWould)
{
    const std::string longText(300, 'p');
    for (size_t n : {1, 12, 64, 512}) {
        // The whole text when it fits, nothing (and 0) when it would be cut.
        auto expect = [n](int result, const char* got, const std::string& whole) {
            bool fits = whole.size() < n;
            EXPECT_EQ(result, fits ? 1 : 0) << whole << " n=" << n;
            EXPECT_EQ(std::string(got), fits ? whole : "") << " n=" << n;
        };
        char out[512];
        expect(formatChecked(out, n, "%s%s", "/tmp/onvif/", "Profile1.profile"), out, "/tmp/onvif/Profile1.profile");
        expect(formatChecked(out, n, "%s.VSConf", "VideoSrcConfig1"), out, "VideoSrcConfig1.VSConf");
        expect(formatChecked(out, n, "plain"), out, "plain");
        expect(formatChecked(out, n, "%s/%s", "", ""), out, "/");
        expect(formatChecked(out, n, "%s%s", longText.c_str(), "x"), out, longText + "x");
        expect(formatChecked(out, n, "%s=%d", "Port", 80), out, "Port=80");
        expect(formatChecked(out, n, "100%%%s", "!"), out, "100%!");
    }
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
