// Media profiles end to end: listings, creation and deletion, binding with
// use counts, the channel rule of model code 6, and metadata configurations.
#include "tests/fixture.h"

#include <regex>
#include <tinyxml.h>

namespace {

class MediaProfiles : public CameraTest {
protected:
    std::string useCount(const std::string& rel)
    {
        std::smatch m;
        std::string text = readFile(rel);
        return std::regex_search(text, m, std::regex("UseCount=(-?\\d+)")) ? m[1].str() : "?";
    }
    CgiResult bind(const std::string& action, const std::string& profile, const std::string& config = "")
    {
        std::string body = "<trt:" + action + "><trt:ProfileToken>" + profile + "</trt:ProfileToken>";
        if (!config.empty())
            body += "<trt:ConfigurationToken>" + config + "</trt:ConfigurationToken>";
        return call(body + "</trt:" + action + ">");
    }
    static void expectWellFormed(const CgiResult& r)
    {
        TiXmlDocument doc;
        doc.Parse(r.body.c_str());
        EXPECT_FALSE(doc.Error()) << doc.ErrorDesc() << "\n" << r.body;
    }
};

const char VENC2[] = "tmp/onvif/VideoEncoder2.VEncoder";
const char VSRC[] = "tmp/onvif/VideoSrcConfig1.VSConf";

TEST_F(MediaProfiles, FactoryListingsAreWellFormedAndInSchemaOrder)
{
    word(AUDIO_INPUTS_WORD) = 1;
    word(PAN_TILT_WORD) = PAN_TILT_RS485;
    CgiResult all = call("<trt:GetProfiles/>");
    EXPECT_EQ(all.status, 200);
    expectWellFormed(all);
    const std::string& b = all.envelopeBody;
    EXPECT_NE(b.find("<trt:Profiles token=\"Profile1\" fixed=\"true\"><tt:Name>MainStream</tt:Name>"
                     "<tt:VideoSourceConfiguration token=\"VideoSrcConfig1\"><tt:Name>VideoSourceConfig</tt:Name>"
                     "<tt:UseCount>4</tt:UseCount><tt:SourceToken>VideoSource1</tt:SourceToken>"
                     "<tt:Bounds x=\"0\" y=\"0\" width=\"1920\" height=\"1080\"></tt:Bounds>"
                     "</tt:VideoSourceConfiguration><tt:AudioSourceConfiguration"), std::string::npos) << b;
    EXPECT_NE(b.find("<tt:Encoding>H264</tt:Encoding><tt:Resolution><tt:Width>1920</tt:Width><tt:Height>1080"
                     "</tt:Height></tt:Resolution><tt:Quality>80</tt:Quality><tt:RateControl><tt:FrameRateLimit>30"
                     "</tt:FrameRateLimit><tt:EncodingInterval>1</tt:EncodingInterval><tt:BitrateLimit>4096"
                     "</tt:BitrateLimit></tt:RateControl><tt:H264><tt:GovLength>30</tt:GovLength>"
                     "<tt:H264Profile>Main</tt:H264Profile></tt:H264><tt:Multicast>"), std::string::npos);
    EXPECT_NE(b.find("<tt:Events><tt:Filter><wsnt:TopicExpression Dialect=\"http://www.onvif.org/ver10/tev/"
                     "topicExpression/ConcreteSet\"></wsnt:TopicExpression>"), std::string::npos);
    for (int i = 1; i <= 4; ++i)
        EXPECT_NE(b.find("token=\"Profile" + std::to_string(i) + "\""), std::string::npos);
    EXPECT_EQ(b.find("<tt:H264><tt:GovLength>5"), std::string::npos);  // JPEG has no H264 block

    word(AUDIO_INPUTS_WORD) = 0;  // audio still bound, but hidden
    CgiResult one = call("<trt:GetProfile><trt:ProfileToken>Profile1</trt:ProfileToken></trt:GetProfile>");
    expectWellFormed(one);
    EXPECT_EQ(one.envelopeBody.find("Audio"), std::string::npos);
    EXPECT_EQ(one.envelopeBody.rfind("<trt:GetProfileResponse><trt:Profile token=\"Profile1\" fixed=\"true\">", 0), 0u);
    for (const char* action : {"<trt:GetMetadataConfigurations/>", "<trt:GetCompatibleMetadataConfigurations/>",
                               "<trt:GetMetadataConfiguration><trt:ConfigurationToken>MetaData1"
                               "</trt:ConfigurationToken></trt:GetMetadataConfiguration>",
                               "<trt:GetMetadataConfigurationOptions><trt:ConfigurationToken>MetaData1"
                               "</trt:ConfigurationToken></trt:GetMetadataConfigurationOptions>"}) {
        CgiResult r = call(action);
        EXPECT_EQ(r.status, 200) << action;
        expectWellFormed(r);
    }
}

TEST_F(MediaProfiles, EmptyAndMissingIndex)
{
    writeFile("tmp/onvif/Profiles.conf", "");
    EXPECT_EQ(call("<trt:GetProfiles/>").envelopeBody, "<trt:GetProfilesResponse></trt:GetProfilesResponse>");
    removeFile("tmp/onvif/Profiles.conf");
    EXPECT_EQ(call("<trt:GetProfiles/>").envelopeBody, "<trt:GetProfilesResponse>");
    EXPECT_NE(call("<trt:GetProfile><trt:ProfileToken>Profile1</trt:ProfileToken></trt:GetProfile>")
                  .envelopeBody.find("ter:NoProfile"), std::string::npos);
    CgiResult created = call("<trt:CreateProfile><trt:Name>First</trt:Name></trt:CreateProfile>");
    EXPECT_NE(created.envelopeBody.find("token=\"Profile1\""), std::string::npos);
    EXPECT_EQ(readFile("tmp/onvif/Profiles.conf"), "profile filename=Profile1.profile\n");
}

TEST_F(MediaProfiles, CreateAndDeleteProfiles)
{
    CgiResult r = call("<trt:CreateProfile><trt:Name>My cam</trt:Name></trt:CreateProfile>");
    EXPECT_EQ(r.envelopeBody, "<trt:CreateProfileResponse><trt:Profile token=\"Profile5\" fixed=\"false\">"
                              "<tt:Name>My cam</tt:Name></trt:Profile></trt:CreateProfileResponse>");
    EXPECT_EQ(readFile("tmp/onvif/Profile5.profile"),
              "Fixed=false\nName=My cam\nVideoSource=NONE\nAudioSource=NONE\nVideoEncoder=NONE\n"
              "AudioEncoder=NONE\nPTZ=NONE\nVAnalytics=NONE\nMetadata=NONE\n");
    struct Case { std::string body; std::string fault; };
    for (const Case& c : {
             Case{"<trt:CreateProfile><trt:Name>a/b</trt:Name></trt:CreateProfile>", "ter:CertificateFormat"},
             Case{"<trt:CreateProfile/>", "ter:CertificateFormat"},
             Case{"<trt:CreateProfile><trt:Name>x</trt:Name><trt:Token>../x</trt:Token></trt:CreateProfile>",
                  "ter:CertificateFormat"},
             Case{"<trt:CreateProfile><trt:Name>x</trt:Name><trt:Token>Profile5</trt:Token></trt:CreateProfile>",
                  "ter:ProfileExists"},
             Case{"<trt:DeleteProfile><trt:ProfileToken>Profile1</trt:ProfileToken></trt:DeleteProfile>",
                  "ter:DeletionOfFixedProfile"},
             Case{"<trt:DeleteProfile><trt:ProfileToken>Nothing</trt:ProfileToken></trt:DeleteProfile>",
                  "ter:NoProfile"},
         }) {
        CgiResult f = call(c.body);
        EXPECT_EQ(f.status, 400) << c.body;
        EXPECT_NE(f.envelopeBody.find(c.fault), std::string::npos) << c.body << f.envelopeBody;
    }
    // Deleting gives back what the profile held.
    EXPECT_EQ(bind("AddVideoEncoderConfiguration", "Profile5", "VideoEncoder2").status, 200);
    EXPECT_EQ(useCount(VENC2), "2");
    EXPECT_EQ(call("<trt:DeleteProfile><trt:ProfileToken>Profile5</trt:ProfileToken></trt:DeleteProfile>").status, 200);
    EXPECT_EQ(useCount(VENC2), "1");
    EXPECT_FALSE(exists("tmp/onvif/Profile5.profile"));
    EXPECT_EQ(readFile("tmp/onvif/Profiles.conf").find("Profile5"), std::string::npos);
}

TEST_F(MediaProfiles, BindingKeepsUseCounts)
{
    call("<trt:CreateProfile><trt:Name>x</trt:Name><trt:Token>Extra</trt:Token></trt:CreateProfile>");
    EXPECT_EQ(bind("AddVideoSourceConfiguration", "Extra", "VideoSrcConfig1").status, 200);
    EXPECT_EQ(bind("AddVideoSourceConfiguration", "Extra", "VideoSrcConfig1").status, 200);
    EXPECT_EQ(useCount(VSRC), "5");  // the same configuration twice counts once
    EXPECT_EQ(bind("AddAudioSourceConfiguration", "Extra", "AudioSrcConfig1").status, 200);
    EXPECT_EQ(useCount("usr/apache/htdocs/onvif/AudioSrcConfig1.ASConf"), "2");
    EXPECT_EQ(bind("RemoveAudioSourceConfiguration", "Extra").status, 200);
    EXPECT_EQ(useCount("usr/apache/htdocs/onvif/AudioSrcConfig1.ASConf"), "1");

    CgiResult none = bind("RemoveVideoEncoderConfiguration", "Extra");
    EXPECT_NE(none.envelopeBody.find("There exists no video encoder configuration in the media profile"),
              std::string::npos);
    writeFile(VENC2, "Name=VideoEncoder2\nRate=50%% of max\nUseCount=0\n");
    EXPECT_EQ(bind("AddVideoEncoderConfiguration", "Extra", "VideoEncoder2").status, 200);
    EXPECT_EQ(bind("AddVideoEncoderConfiguration", "Extra", "VideoEncoder1").status, 200);  // moves the binding
    EXPECT_EQ(readFile(VENC2), "Name=VideoEncoder2\nRate=50% of max\nUseCount=0\n");
    EXPECT_EQ(useCount("tmp/onvif/VideoEncoder1.VEncoder"), "2");
    writeFile(VENC2, "UseCount=0\n");
    call("<trt:CreateProfile><trt:Name>y</trt:Name><trt:Token>Other</trt:Token></trt:CreateProfile>");
    writeFile("tmp/onvif/Other.profile", "Fixed=false\nVideoEncoder=VideoEncoder2\n");
    EXPECT_EQ(bind("RemoveVideoEncoderConfiguration", "Other").status, 200);
    EXPECT_EQ(useCount(VENC2), "-1");

    struct Case { std::string action; std::string profile; std::string config; std::string fault; };
    for (const Case& c : {Case{"AddVideoEncoderConfiguration", "Nope", "VideoEncoder1", "ter:NoProfile"},
                          Case{"AddVideoEncoderConfiguration", "Extra", "Nope", "VideoEncoderConfiguration does not exist"},
                          Case{"AddMetadataConfiguration", "Extra", "../../x", "MetadataConfiguration does not exist"},
                          Case{"RemoveMetadataConfiguration", "Nope", "", "does not exist.</SOAP-ENV:Text>"}}) {
        CgiResult r = bind(c.action, c.profile, c.config);
        EXPECT_NE(r.envelopeBody.find(c.fault), std::string::npos) << c.action << r.envelopeBody;
    }
}

TEST_F(MediaProfiles, ChannelRuleOnModelCode6)
{
    word(MODEL_CODE_WORD) = MODEL_A5S_SDK310;
    word(STREAM_MODE_WORD) = 4;
    struct Case { int variant; int mode; const char* profile; const char* config; const char* uc1; int ok; };
    for (const Case& c : {Case{VARIANT_GENERIC, 4, "Profile1", "VideoEncoder2", "1", 0}, Case{VARIANT_GENERIC, 4, "Profile1", "VideoEncoder1", "1", 1},
                          Case{VARIANT_GENERIC, 4, "Profile2", "VideoEncoder2", "1", 0}, Case{VARIANT_GENERIC, 5, "Profile2", "VideoEncoder2", "1", 1},
                          Case{VARIANT_GENERIC, 5, "Profile3", "VideoEncoder3", "2", 0}, Case{VARIANT_GENERIC, 5, "Profile3", "VideoEncoder3", "1", 1},
                          Case{VARIANT_WIDE_SENSOR, 4, "Profile3", "VideoEncoder1", "2", 1}, Case{VARIANT_WIDE_SENSOR, 4, "Profile4", "VideoEncoder2", "2", 1},
                          Case{VARIANT_GENERIC, 1, "Profile4", "VideoEncoder4", "1", 0}}) {
        word(VARIANT_CODE) = c.variant;
        word(STREAM_MODE_WORD) = c.mode;
        writeFile("tmp/onvif/VideoEncoder1.VEncoder", std::string("Name=VideoEncoder1\nUseCount=") + c.uc1 +
                                                          "\nEncoding=H264\n");
        CgiResult r = bind("AddVideoEncoderConfiguration", c.profile, c.config);
        EXPECT_EQ(r.status, c.ok ? 200 : 400) << c.profile << " " << c.config << " mode " << c.mode;
        if (!c.ok) {
            EXPECT_NE(r.envelopeBody.find("ter:ConfigurationConflict"), std::string::npos);
        }
    }
    CgiResult r = bind("RemoveVideoEncoderConfiguration", "Profile1");
    EXPECT_NE(r.envelopeBody.find("removing it would cause a conflicting media profile."), std::string::npos);
}

TEST_F(MediaProfiles, TokensNeverLeaveTheStore)
{
    writeFile("etc/x.profile", "Fixed=false\n");
    writeFile("tmp/x.profile", "Fixed=false\n");
    for (const char* token : {"../../etc/x", "../x", "a/b", "..", "x\ny"}) {
        CgiResult r = call(std::string("<trt:DeleteProfile><trt:ProfileToken>") + token +
                           "</trt:ProfileToken></trt:DeleteProfile>");
        EXPECT_NE(r.envelopeBody.find("ter:NoProfile"), std::string::npos) << token;
    }
    EXPECT_TRUE(exists("etc/x.profile"));
    EXPECT_TRUE(exists("tmp/x.profile"));
}

TEST_F(MediaProfiles, SetMetadataConfigurationChecksAndKeepsTheAddressLine)
{
    auto set = [&](const std::string& inner) {
        return call("<trt:SetMetadataConfiguration><trt:Configuration token=\"MetaData1\">" + inner +
                    "</trt:Configuration><trt:ForcePersistence>true</trt:ForcePersistence>"
                    "</trt:SetMetadataConfiguration>");
    };
    const std::string file = "usr/apache/htdocs/onvif/MetaData1.MetaData";
    const std::string before = readFile(file);
    struct Case { std::string inner; int ok; };
    for (const Case& c : {Case{"<tt:SessionTimeout>invalid</tt:SessionTimeout>", 0},
                          Case{"<tt:Multicast><tt:Port>65536</tt:Port></tt:Multicast>", 0},
                          Case{"<tt:Multicast><tt:Port>-1</tt:Port></tt:Multicast>", 0},
                          Case{"<tt:Multicast><tt:Address><tt:Type>ipv4</tt:Type></tt:Address></tt:Multicast>", 0},
                          Case{"<tt:Name>bad/name</tt:Name>", 0},
                          Case{"<tt:SessionTimeout>a&#10;Name=x</tt:SessionTimeout>", 0}}) {
        CgiResult r = set(c.inner);
        EXPECT_NE(r.envelopeBody.find("ter:ConfigModify"), std::string::npos) << c.inner;
    }
    EXPECT_EQ(readFile(file), before);
    CgiResult ok = set("<tt:Name>Meta</tt:Name><tt:UseCount>7</tt:UseCount><tt:Multicast><tt:Address>"
                       "<tt:Type>IPv4</tt:Type><tt:IPv4Address>239.1.1.1</tt:IPv4Address></tt:Address>"
                       "<tt:Port>65535</tt:Port><tt:TTL>3</tt:TTL><tt:AutoStart>TRUE</tt:AutoStart></tt:Multicast>"
                       "<tt:SessionTimeout>abc</tt:SessionTimeout>");
    EXPECT_EQ(ok.envelopeBody, "<trt:SetMetadataConfigurationResponse></trt:SetMetadataConfigurationResponse>");
    const std::string after = readFile(file);
    for (const char* line : {"Name=Meta\n", "UseCount=7\n", "Multicast.Port=65535\n", "Multicast.TTL=3\n",
                             "Multicast.AutoStart=true\n", "SessionTimeout=abc\n",
                             "Multicast.Address.IPv4Address=239.0.0.20\n", "PTZStatus.Status=false\n"})
        EXPECT_NE(after.find(line), std::string::npos) << line;
    EXPECT_NE(call("<trt:SetMetadataConfiguration><trt:Configuration token=\"Nope\"/></trt:SetMetadataConfiguration>")
                  .envelopeBody.find("does not exist in MetaData file."), std::string::npos);
}

}  // namespace
