// Media streaming end to end (sources, encoders and options by model, setters, addresses
// from the client's Host, multicast), every answer checked against the ONVIF schema.
#include "tests/fixture.h"

#include <unistd.h>
#include <regex>
#include <vector>

namespace {

const char VENC1[] = "tmp/onvif/VideoEncoder1.VEncoder";
const char VENC2[] = "tmp/onvif/VideoEncoder2.VEncoder";
const char AENC1[] = "tmp/onvif/AudioEncoder1.AEncoder";
const char VSRC1[] = "tmp/onvif/VideoSrcConfig1.VSConf";

class MediaStreams : public CameraTest {
protected:
    // Runs one action with the Host header given (the suite checks every answer against the schema).
    CgiResult ask(const std::string& bodyXml, const std::string& host = "192.168.0.100")
    {
        return run(soap(bodyXml), "", {{"HOST", host}});
    }

    static std::string has(const CgiResult& r, const std::string& text)
    {
        return r.envelopeBody.find(text) != std::string::npos ? "" : "missing " + text + " in " + r.envelopeBody;
    }
};

std::string encoderSet(const std::string& token, const std::string& inner)
{
    return "<trt:SetVideoEncoderConfiguration><trt:Configuration token=\"" + token + "\">" + inner +
           "</trt:Configuration><trt:ForcePersistence>true</trt:ForcePersistence></trt:SetVideoEncoderConfiguration>";
}

// The whole configuration a client sends back after a Get, with changes.
std::string fullEncoder1(const std::string& width, const std::string& height, const std::string& rate,
                         const std::string& bitrate)
{
    return "<tt:Name>VideoEncoder1</tt:Name><tt:UseCount>1</tt:UseCount><tt:Encoding>H264</tt:Encoding>"
           "<tt:Resolution><tt:Width>" + width + "</tt:Width><tt:Height>" + height + "</tt:Height></tt:Resolution>"
           "<tt:Quality>80</tt:Quality><tt:RateControl><tt:FrameRateLimit>" + rate + "</tt:FrameRateLimit>"
           "<tt:EncodingInterval>1</tt:EncodingInterval><tt:BitrateLimit>" + bitrate + "</tt:BitrateLimit>"
           "</tt:RateControl><tt:H264><tt:GovLength>30</tt:GovLength><tt:H264Profile>Main</tt:H264Profile></tt:H264>"
           "<tt:Multicast><tt:Address><tt:Type>IPv4</tt:Type><tt:IPv4Address>239.0.0.1</tt:IPv4Address></tt:Address>"
           "<tt:Port>5560</tt:Port><tt:TTL>1</tt:TTL><tt:AutoStart>false</tt:AutoStart></tt:Multicast>"
           "<tt:SessionTimeout>PT60S</tt:SessionTimeout>";
}

std::string streamUri(const std::string& profile, const std::string& stream = "RTP-Unicast",
                      const std::string& protocol = "RTSP")
{
    return "<trt:GetStreamUri><trt:StreamSetup><tt:Stream>" + stream + "</tt:Stream><tt:Transport><tt:Protocol>" +
           protocol + "</tt:Protocol></tt:Transport></trt:StreamSetup><trt:ProfileToken>" + profile +
           "</trt:ProfileToken></trt:GetStreamUri>";
}

std::string snapshotUri(const std::string& profile)
{
    return "<trt:GetSnapshotUri><trt:ProfileToken>" + profile + "</trt:ProfileToken></trt:GetSnapshotUri>";
}

std::string withToken(const std::string& action, const std::string& element, const std::string& token)
{
    return "<trt:" + action + "><trt:" + element + ">" + token + "</trt:" + element + "></trt:" + action + ">";
}

TEST_F(MediaStreams, EveryGetReportsTheFactoryFiles)
{
    word(AUDIO_INPUTS_WORD) = 1;
    struct Case { std::string body; std::vector<std::string> expected; };
    const std::vector<Case> cases = {
        {"<trt:GetVideoSources/>",
         {"<trt:VideoSources token=\"VideoSource1\"><tt:Framerate>30</tt:Framerate><tt:Resolution><tt:Width>1920"
          "</tt:Width><tt:Height>1080</tt:Height></tt:Resolution><tt:Imaging><tt:Brightness>50</tt:Brightness>",
          "<tt:IrCutFilter>AUTO</tt:IrCutFilter>"}},
        {"<trt:GetVideoSourceConfigurations/>",
         {"<trt:Configurations token=\"VideoSrcConfig1\"><tt:Name>VideoSourceConfig</tt:Name><tt:UseCount>4"
          "</tt:UseCount><tt:SourceToken>VideoSource1</tt:SourceToken><tt:Bounds x=\"0\" y=\"0\" width=\"1920\" "
          "height=\"1080\"></tt:Bounds></trt:Configurations>"}},
        {withToken("GetVideoSourceConfiguration", "ConfigurationToken", "VideoSrcConfig1"),
         {"<trt:Configuration token=\"VideoSrcConfig1\"><tt:Name>VideoSourceConfig</tt:Name>"}},
        {withToken("GetCompatibleVideoSourceConfigurations", "ProfileToken", "Profile2"),
         {"<trt:Configurations token=\"VideoSrcConfig1\">"}},
        {"<trt:GetVideoSourceConfigurationOptions/>",
         {"<tt:WidthRange><tt:Min>1920</tt:Min><tt:Max>1920</tt:Max></tt:WidthRange>",
          "<tt:VideoSourceTokensAvailable>VideoSource1</tt:VideoSourceTokensAvailable>"}},
        {"<trt:GetVideoEncoderConfigurations/>",
         {"<trt:Configurations token=\"VideoEncoder1\"><tt:Name>VideoEncoder1</tt:Name>",
          "<tt:Width>640</tt:Width><tt:Height>360</tt:Height></tt:Resolution><tt:Quality>70</tt:Quality>",
          "<tt:IPv4Address>239.0.0.4</tt:IPv4Address></tt:Address><tt:Port>5566</tt:Port>"}},
        {withToken("GetVideoEncoderConfiguration", "ConfigurationToken", "VideoEncoder3"),
         {"<tt:Encoding>H264</tt:Encoding><tt:Resolution><tt:Width>640</tt:Width><tt:Height>360</tt:Height>"
          "</tt:Resolution><tt:Quality>50</tt:Quality><tt:RateControl><tt:FrameRateLimit>15</tt:FrameRateLimit>"
          "<tt:EncodingInterval>1</tt:EncodingInterval><tt:BitrateLimit>512</tt:BitrateLimit></tt:RateControl>"
          "<tt:H264><tt:GovLength>15</tt:GovLength><tt:H264Profile>Baseline</tt:H264Profile></tt:H264>"}},
        {withToken("GetCompatibleVideoEncoderConfigurations", "ProfileToken", "Profile1"),
         {"token=\"VideoEncoder1\"", "token=\"VideoEncoder4\""}},
        {withToken("GetVideoEncoderConfigurationOptions", "ConfigurationToken", "VideoEncoder1"),
         {"<tt:QualityRange><tt:Min>1</tt:Min><tt:Max>100</tt:Max></tt:QualityRange><tt:H264>"
          "<tt:ResolutionsAvailable><tt:Width>1920</tt:Width><tt:Height>1080</tt:Height></tt:ResolutionsAvailable>",
          "<tt:H264ProfilesSupported>High</tt:H264ProfilesSupported>",
          "<tt:BitrateRange><tt:Min>512</tt:Min><tt:Max>8192</tt:Max></tt:BitrateRange>"}},
        {withToken("GetVideoEncoderConfigurationOptions", "ProfileToken", "Profile4"),
         {"<tt:JPEG><tt:ResolutionsAvailable><tt:Width>1280</tt:Width>",
          "<tt:FrameRateRange><tt:Min>1</tt:Min><tt:Max>15</tt:Max></tt:FrameRateRange>"}},
        {withToken("GetGuaranteedNumberOfVideoEncoderInstances", "ConfigurationToken", "VideoSrcConfig1"),
         {"<trt:TotalNumber>4</trt:TotalNumber><trt:JPEG>1</trt:JPEG><trt:H264>3</trt:H264><trt:MPEG4>1</trt:MPEG4>"}},
        {"<trt:GetAudioSources/>", {"<trt:AudioSources token=\"AudioSource1\"><tt:Channels>1</tt:Channels>"}},
        {"<trt:GetAudioSourceConfigurations/>",
         {"<trt:Configurations token=\"AudioSrcConfig1\"><tt:Name>AudioSourceConfig</tt:Name><tt:UseCount>1"
          "</tt:UseCount><tt:SourceToken>AudioSource1</tt:SourceToken>"}},
        {withToken("GetAudioSourceConfiguration", "ConfigurationToken", "AudioSrcConfig1"),
         {"<trt:Configuration token=\"AudioSrcConfig1\">"}},
        {withToken("GetCompatibleAudioSourceConfigurations", "ProfileToken", "Profile1"), {"AudioSrcConfig1"}},
        {"<trt:GetAudioSourceConfigurationOptions/>",
         {"<tt:InputTokensAvailable>AudioSource1</tt:InputTokensAvailable>"}},
        {"<trt:GetAudioEncoderConfigurations/>",
         {"<tt:Encoding>G711</tt:Encoding><tt:Bitrate>64</tt:Bitrate><tt:SampleRate>8</tt:SampleRate>",
          "<tt:IPv4Address>239.0.0.10</tt:IPv4Address>"}},
        {withToken("GetAudioEncoderConfiguration", "ConfigurationToken", "AudioEncoder1"),
         {"<trt:Configuration token=\"AudioEncoder1\"><tt:Name>AudioEncoder1</tt:Name>"}},
        {withToken("GetCompatibleAudioEncoderConfigurations", "ProfileToken", "Profile1"), {"AudioEncoder1"}},
        {"<trt:GetAudioEncoderConfigurationOptions/>",
         {"<tt:Options><tt:Encoding>G726</tt:Encoding><tt:BitrateList><tt:Items>16</tt:Items>"}},
        {"<trt:GetAudioOutputs/>", {"<trt:GetAudioOutputsResponse></trt:GetAudioOutputsResponse>"}},
        {"<trt:GetAudioOutputConfigurations/>", {"<trt:GetAudioOutputConfigurationsResponse>"}},
        {"<trt:GetAudioDecoderConfigurationOptions/>", {"<trt:Options></trt:Options>"}},
        {streamUri("Profile1"), {"<tt:Uri>rtsp://192.168.0.100/live/ch1</tt:Uri><tt:InvalidAfterConnect>false"
                                 "</tt:InvalidAfterConnect><tt:InvalidAfterReboot>false</tt:InvalidAfterReboot>"
                                 "<tt:Timeout>PT60S</tt:Timeout>"}},
        {snapshotUri("Profile3"), {"<tt:Uri>http://192.168.0.100/snapshot/ch3.jpg</tt:Uri>"}},
    };
    for (const Case& c : cases) {
        CgiResult r = ask(c.body);
        EXPECT_EQ(r.status, 200) << c.body << r.envelopeBody;
        for (const std::string& e : c.expected)
            EXPECT_EQ(has(r, e), "") << c.body;
    }
    EXPECT_EQ(cameraCalls(), "");
}

TEST_F(MediaStreams, SourceTokensPairWithTheProfilesConfigurations)
{
    // Clients match each profile's SourceToken against the listed sources.
    CgiResult sources = ask("<trt:GetVideoSources/>");
    CgiResult profiles = ask("<trt:GetProfiles/>");
    std::regex sourceToken("<tt:SourceToken>([^<]*)</tt:SourceToken>");
    int seen = 0;
    for (std::sregex_iterator it(profiles.envelopeBody.begin(), profiles.envelopeBody.end(), sourceToken), end;
         it != end; ++it, ++seen) {
        std::string token = (*it)[1].str();
        if (token.rfind("Audio", 0) == 0)
            continue;
        EXPECT_EQ(has(sources, "<trt:VideoSources token=\"" + token + "\">"), "");
    }
    EXPECT_GE(seen, 4);
}

TEST_F(MediaStreams, WithoutAudioListsAreEmptyAndAudioActionsAreRefused)
{
    word(AUDIO_INPUTS_WORD) = 0;
    for (const char* list : {"GetAudioSources", "GetAudioSourceConfigurations", "GetAudioEncoderConfigurations"}) {
        CgiResult r = ask(std::string("<trt:") + list + "/>");
        EXPECT_EQ(r.envelopeBody, std::string("<trt:") + list + "Response></trt:" + list + "Response>");
    }
    CgiResult compatible = ask(withToken("GetCompatibleAudioEncoderConfigurations", "ProfileToken", "Profile1"));
    EXPECT_EQ(compatible.envelopeBody.find("AudioEncoder1"), std::string::npos);
    std::string before = readFile(AENC1);
    for (const std::string& body : {
             withToken("GetAudioSourceConfiguration", "ConfigurationToken", "AudioSrcConfig1"),
             withToken("GetAudioEncoderConfiguration", "ConfigurationToken", "AudioEncoder1"),
             std::string("<trt:GetAudioEncoderConfigurationOptions/>"),
             std::string("<trt:GetAudioSourceConfigurationOptions/>"),
             std::string("<trt:SetAudioEncoderConfiguration><trt:Configuration token=\"AudioEncoder1\"><tt:Name>x"
                         "</tt:Name></trt:Configuration><trt:ForcePersistence>true</trt:ForcePersistence>"
                         "</trt:SetAudioEncoderConfiguration>"),
             std::string("<trt:SetAudioSourceConfiguration><trt:Configuration token=\"AudioSrcConfig1\"><tt:Name>x"
                         "</tt:Name></trt:Configuration><trt:ForcePersistence>true</trt:ForcePersistence>"
                         "</trt:SetAudioSourceConfiguration>")}) {
        CgiResult r = ask(body);
        EXPECT_EQ(r.status, 400) << body;
        EXPECT_EQ(has(r, "ter:AudioNotSupported"), "") << body;
    }
    EXPECT_EQ(readFile(AENC1), before);
    EXPECT_EQ(cameraCalls(), "");
}

TEST_F(MediaStreams, EncoderChangeRewritesExactlyItsKeysAndRestartsOnce)
{
    std::string before = readFile(VENC1);
    CgiResult r = ask(encoderSet("VideoEncoder1", fullEncoder1("1280", "720", "15", "2048")));
    EXPECT_EQ(r.status, 200) << r.envelopeBody;
    EXPECT_EQ(r.envelopeBody, "<trt:SetVideoEncoderConfigurationResponse></trt:SetVideoEncoderConfigurationResponse>");
    std::string expected = before;
    for (auto& change : std::vector<std::pair<std::string, std::string>>{
             {"Resolution.Width=1920\n", "Resolution.Width=1280\n"}, {"Resolution.Height=1080\n", "Resolution.Height=720\n"},
             {"RateControl.FrameRateLimit=30\n", "RateControl.FrameRateLimit=15\n"},
             {"RateControl.BitrateLimit=4096\n", "RateControl.BitrateLimit=2048\n"}}) {
        size_t at = expected.find(change.first);
        ASSERT_NE(at, std::string::npos) << change.first;
        expected.replace(at, change.first.size(), change.second);
    }
    EXPECT_EQ(readFile(VENC1), expected);
    EXPECT_EQ(cameraCalls(),
              "/usr/apache/htdocs/cgi-bin/admin/param.cgi QUERY_STRING=action=update&Video.Ch1.Width=1280"
              "&Video.Ch1.Height=720&Video.Ch1.FrameRate=15&Video.Ch1.Bitrate=2048 REMOTE_USER=Admin isOnvif=1\n"
              "/usr/apache/htdocs/cgi-bin/h264/restart_stream.cgi REMOTE_USER=Admin\n");

    CgiResult after = ask(withToken("GetVideoEncoderConfiguration", "ConfigurationToken", "VideoEncoder1"));
    EXPECT_EQ(has(after, "<tt:Resolution><tt:Width>1280</tt:Width><tt:Height>720</tt:Height></tt:Resolution>"
                         "<tt:Quality>80</tt:Quality><tt:RateControl><tt:FrameRateLimit>15</tt:FrameRateLimit>"
                         "<tt:EncodingInterval>1</tt:EncodingInterval><tt:BitrateLimit>2048</tt:BitrateLimit>"), "");

    // The same values again change nothing and run nothing.
    writeFile("camera_calls.log", "");
    EXPECT_EQ(ask(encoderSet("VideoEncoder1", fullEncoder1("1280", "720", "15", "2048"))).status, 200);
    EXPECT_EQ(readFile(VENC1), expected);
    EXPECT_EQ(cameraCalls(), "");

    // A name or multicast change goes to the settings program without a restart.
    CgiResult multicast = ask(encoderSet("VideoEncoder2", "<tt:Name>Sub stream</tt:Name><tt:Multicast><tt:Address>"
                                                          "<tt:Type>IPv4</tt:Type><tt:IPv4Address>239.1.2.3"
                                                          "</tt:IPv4Address></tt:Address><tt:Port>6000</tt:Port>"
                                                          "<tt:TTL>4</tt:TTL><tt:AutoStart>TRUE</tt:AutoStart>"
                                                          "</tt:Multicast>"));
    EXPECT_EQ(multicast.status, 200) << multicast.envelopeBody;
    std::string venc2 = readFile(VENC2);
    for (const char* line : {"Name=Sub stream\n", "Multicast.Address.IPv4Address=239.1.2.3\n", "Multicast.Port=6000\n",
                             "Multicast.TTL=4\n", "Multicast.AutoStart=true\n"})
        EXPECT_NE(venc2.find(line), std::string::npos) << line;
    EXPECT_EQ(cameraCalls(),
              "/usr/apache/htdocs/cgi-bin/admin/param.cgi QUERY_STRING=action=update&Video.Ch2.Multicast.IPv4Address="
              "239.1.2.3&Video.Ch2.Multicast.Port=6000&Video.Ch2.Multicast.TTL=4&Video.Ch2.Multicast.AutoStart=true "
              "REMOTE_USER=Admin isOnvif=1\n");
    // The programs run where and as whom the stream restart of the media service runs them.
    writeFile("camera_calls.log", "");
    word(VARIANT_CODE) = VARIANT_VANTOR;
    word(WEB_USER_WORD) = WEB_USER_ROOT;
    EXPECT_EQ(ask(encoderSet("VideoEncoder3", "<tt:RateControl><tt:FrameRateLimit>10</tt:FrameRateLimit>"
                                              "</tt:RateControl>")).status, 200);
    EXPECT_EQ(cameraCalls(),
              "/usr/apache/htdocs/vantor-cgi/admin/param.cgi QUERY_STRING=action=update&Video.Ch3.FrameRate=10 "
              "REMOTE_USER=root isOnvif=1\n"
              "/usr/apache/htdocs/vantor-cgi/h264/restart_stream.cgi REMOTE_USER=root\n");
}

TEST_F(MediaStreams, WhatAGetReportsCanBeSetBackUnchanged)
{
    // Clients edit the configuration they were given and send all of it back.
    word(AUDIO_INPUTS_WORD) = 1;
    word(VARIANT_CODE) = VARIANT_LENIENT;  // the variant whose sample rates are given in kHz, as the files keep them
    struct Case { const char* kind; const char* token; };
    for (const Case& c : {Case{"VideoEncoder", "VideoEncoder1"}, Case{"VideoEncoder", "VideoEncoder2"},
                          Case{"VideoEncoder", "VideoEncoder3"}, Case{"VideoEncoder", "VideoEncoder4"},
                          Case{"VideoSource", "VideoSrcConfig1"}, Case{"AudioSource", "AudioSrcConfig1"},
                          Case{"AudioEncoder", "AudioEncoder1"}}) {
        std::string kind = c.kind;
        CgiResult got = ask(withToken("Get" + kind + "Configuration", "ConfigurationToken", c.token));
        size_t begin = got.envelopeBody.find("<trt:Configuration ");
        size_t end = got.envelopeBody.find("</trt:Configuration>");
        ASSERT_NE(begin, std::string::npos) << c.token;
        ASSERT_NE(end, std::string::npos) << c.token;
        std::string configuration = got.envelopeBody.substr(begin, end + 20 - begin);
        CgiResult set = ask("<trt:Set" + kind + "Configuration>" + configuration +
                            "<trt:ForcePersistence>true</trt:ForcePersistence></trt:Set" + kind + "Configuration>");
        EXPECT_EQ(set.status, 200) << c.token << set.envelopeBody;
    }
    EXPECT_EQ(cameraCalls(), "");
}

TEST_F(MediaStreams, EncoderChangeToAnotherEncodingOfTheChannel)
{
    CgiResult r = ask(encoderSet("VideoEncoder2", "<tt:Encoding>MPEG4</tt:Encoding><tt:MPEG4><tt:GovLength>25"
                                                  "</tt:GovLength><tt:Mpeg4Profile>ASP</tt:Mpeg4Profile></tt:MPEG4>"));
    EXPECT_EQ(r.status, 200) << r.envelopeBody;
    CgiResult after = ask(withToken("GetVideoEncoderConfiguration", "ConfigurationToken", "VideoEncoder2"));
    EXPECT_EQ(has(after, "<tt:MPEG4><tt:GovLength>25</tt:GovLength><tt:Mpeg4Profile>ASP</tt:Mpeg4Profile></tt:MPEG4>"), "");
    EXPECT_EQ(cameraCalls(),
              "/usr/apache/htdocs/cgi-bin/admin/param.cgi QUERY_STRING=action=update&Video.Ch2.Encoding=MPEG4"
              "&Video.Ch2.GovLength=25&Video.Ch2.Profile=ASP REMOTE_USER=Admin isOnvif=1\n"
              "/usr/apache/htdocs/cgi-bin/h264/restart_stream.cgi REMOTE_USER=Admin\n");
    EXPECT_NE(readFile(VENC2).find("Encoding=MPEG4\n"), std::string::npos);
    EXPECT_NE(readFile(VENC2).find("GovLength=25\nProfile=ASP\n"), std::string::npos);
    // MPEG-4 without a profile of its own would keep the H.264 one: refused.
    EXPECT_EQ(ask(encoderSet("VideoEncoder3", "<tt:Encoding>MPEG4</tt:Encoding>")).status, 400);
    EXPECT_EQ(ask(encoderSet("VideoEncoder2", "<tt:Encoding>H264</tt:Encoding>")).status, 400);
}

TEST_F(MediaStreams, OutOfOptionsAndHostileValuesAreRefusedWithNothingWrittenOrRun)
{
    word(AUDIO_INPUTS_WORD) = 1;
    const std::string longText(300, 'a');
    struct Case { std::string token; std::string inner; std::string fault; };
    const std::vector<Case> cases = {
        {"VideoEncoder2", "<tt:Resolution><tt:Width>1920</tt:Width><tt:Height>1080</tt:Height></tt:Resolution>", "ConfigModify"},
        {"VideoEncoder1", "<tt:Resolution><tt:Width>1280</tt:Width><tt:Height>1080</tt:Height></tt:Resolution>", "ConfigModify"},
        {"VideoEncoder1", "<tt:Resolution><tt:Width>1920</tt:Width></tt:Resolution><tt:Height>720</tt:Height>", "ConfigModify"},
        {"VideoEncoder1", "<tt:RateControl><tt:FrameRateLimit>31</tt:FrameRateLimit></tt:RateControl>", "ConfigModify"},
        {"VideoEncoder4", "<tt:RateControl><tt:FrameRateLimit>30</tt:FrameRateLimit></tt:RateControl>", "ConfigModify"},
        {"VideoEncoder1", "<tt:RateControl><tt:FrameRateLimit>0</tt:FrameRateLimit></tt:RateControl>", "ConfigModify"},
        {"VideoEncoder1", "<tt:RateControl><tt:EncodingInterval>2</tt:EncodingInterval></tt:RateControl>", "ConfigModify"},
        {"VideoEncoder1", "<tt:RateControl><tt:BitrateLimit>9000</tt:BitrateLimit></tt:RateControl>", "ConfigModify"},
        {"VideoEncoder1", "<tt:RateControl><tt:BitrateLimit>256</tt:BitrateLimit></tt:RateControl>", "ConfigModify"},
        {"VideoEncoder3", "<tt:RateControl><tt:BitrateLimit>63</tt:BitrateLimit></tt:RateControl>", "ConfigModify"},
        {"VideoEncoder1", "<tt:Quality>101</tt:Quality>", "ConfigModify"},
        {"VideoEncoder1", "<tt:Quality>8e1</tt:Quality>", "ConfigModify"},
        {"VideoEncoder1", "<tt:Encoding>JPEG</tt:Encoding>", "ConfigModify"},
        {"VideoEncoder1", "<tt:Encoding>h264</tt:Encoding>", "ConfigModify"},
        {"VideoEncoder2", "<tt:H264><tt:GovLength>30</tt:GovLength><tt:H264Profile>High</tt:H264Profile></tt:H264>", "ConfigModify"},
        {"VideoEncoder1", "<tt:H264><tt:GovLength>151</tt:GovLength></tt:H264>", "ConfigModify"},
        {"VideoEncoder1", "<tt:Multicast><tt:Address><tt:Type>ipv4</tt:Type></tt:Address></tt:Multicast>", "ConfigModify"},
        {"VideoEncoder1", "<tt:Multicast><tt:Address><tt:IPv4Address>1.2.3.4$(reboot)</tt:IPv4Address></tt:Address></tt:Multicast>", "ConfigModify"},
        {"VideoEncoder1", "<tt:Multicast><tt:Address><tt:IPv4Address>239.0.0.256</tt:IPv4Address></tt:Address></tt:Multicast>", "ConfigModify"},
        {"VideoEncoder1", "<tt:Multicast><tt:Address><tt:IPv4Address>239.0.0.1&#10;Name=x</tt:IPv4Address></tt:Address></tt:Multicast>", "ConfigModify"},
        {"VideoEncoder1", "<tt:Multicast><tt:Address><tt:IPv6Address>ff02::1;reboot</tt:IPv6Address></tt:Address></tt:Multicast>", "ConfigModify"},
        {"VideoEncoder1", "<tt:Multicast><tt:Port>65536</tt:Port></tt:Multicast>", "ConfigModify"},
        {"VideoEncoder1", "<tt:Multicast><tt:Port>-1</tt:Port></tt:Multicast>", "ConfigModify"},
        {"VideoEncoder1", "<tt:Multicast><tt:TTL>256</tt:TTL></tt:Multicast>", "ConfigModify"},
        {"VideoEncoder1", "<tt:Multicast><tt:AutoStart>yes</tt:AutoStart></tt:Multicast>", "ConfigModify"},
        {"VideoEncoder1", "<tt:SessionTimeout>invalid</tt:SessionTimeout>", "ConfigModify"},
        {"VideoEncoder1", "<tt:SessionTimeout>PT60S`reboot`</tt:SessionTimeout>", "ConfigModify"},
        {"VideoEncoder1", "<tt:Name>main;reboot</tt:Name>", "ConfigModify"},
        {"VideoEncoder1", "<tt:Name>$(reboot)</tt:Name>", "ConfigModify"},
        {"VideoEncoder1", "<tt:Name>main&#10;Encoding=JPEG</tt:Name>", "ConfigModify"},
        {"VideoEncoder1", "<tt:Name>" + longText + "</tt:Name>", "ConfigModify"},
        {"VideoEncoder1", "<tt:Name></tt:Name>", "ConfigModify"},
        {"VideoEncoder1", "<tt:RateControl><tt:BitrateLimit>" + longText + "</tt:BitrateLimit></tt:RateControl>", "ConfigModify"},
        {"VideoEncoder9", "<tt:Name>x</tt:Name>", "NoConfig"},
        {"../VideoEncoder1", "<tt:Name>x</tt:Name>", "NoConfig"},
        {longText, "<tt:Name>x</tt:Name>", "NoConfig"},
    };
    std::string factory = readFile(VENC1) + readFile(VENC2) + readFile("tmp/onvif/VideoEncoder3.VEncoder") +
                          readFile("tmp/onvif/VideoEncoder4.VEncoder");
    for (const Case& c : cases) {
        // A good change beside the bad value: the whole request is refused.
        CgiResult r = ask(encoderSet(c.token, c.inner + "<tt:Quality>55</tt:Quality>"));
        EXPECT_EQ(r.status, 400) << c.inner;
        EXPECT_EQ(has(r, "<SOAP-ENV:Value>ter:InvalidArgVal</SOAP-ENV:Value>"), "") << c.inner;
        EXPECT_EQ(has(r, "ter:" + c.fault), "") << c.inner;
    }
    // The persistence flag is checked too.
    CgiResult persistence = ask("<trt:SetVideoEncoderConfiguration><trt:Configuration token=\"VideoEncoder1\">"
                                "<tt:Quality>55</tt:Quality></trt:Configuration><trt:ForcePersistence>maybe"
                                "</trt:ForcePersistence></trt:SetVideoEncoderConfiguration>");
    EXPECT_EQ(has(persistence, "ter:ConfigModify"), "");
    EXPECT_EQ(readFile(VENC1) + readFile(VENC2) + readFile("tmp/onvif/VideoEncoder3.VEncoder") +
              readFile("tmp/onvif/VideoEncoder4.VEncoder"), factory);

    std::string sources = readFile(VSRC1), audio = readFile(AENC1);
    for (const std::string& body : {
             std::string("<trt:SetVideoSourceConfiguration><trt:Configuration token=\"VideoSrcConfig1\"><tt:Name>x"
                         "</tt:Name><tt:SourceToken>VideoSource2</tt:SourceToken></trt:Configuration>"
                         "<trt:ForcePersistence>true</trt:ForcePersistence></trt:SetVideoSourceConfiguration>"),
             std::string("<trt:SetVideoSourceConfiguration><trt:Configuration token=\"VideoSrcConfig1\"><tt:Name>x"
                         "</tt:Name><tt:Bounds x=\"0\" y=\"0\" width=\"4000\" height=\"1080\"/></trt:Configuration>"
                         "<trt:ForcePersistence>true</trt:ForcePersistence></trt:SetVideoSourceConfiguration>"),
             std::string("<trt:SetAudioEncoderConfiguration><trt:Configuration token=\"AudioEncoder1\"><tt:Encoding>"
                         "G726</tt:Encoding><tt:Bitrate>64</tt:Bitrate></trt:Configuration><trt:ForcePersistence>true"
                         "</trt:ForcePersistence></trt:SetAudioEncoderConfiguration>"),
             std::string("<trt:SetAudioEncoderConfiguration><trt:Configuration token=\"AudioEncoder1\"><tt:SampleRate>"
                         "8</tt:SampleRate></trt:Configuration><trt:ForcePersistence>true</trt:ForcePersistence>"
                         "</trt:SetAudioEncoderConfiguration>"),
             std::string("<trt:SetAudioEncoderConfiguration><trt:Configuration token=\"AudioEncoder1\"><tt:Encoding>"
                         "MP3</tt:Encoding></trt:Configuration><trt:ForcePersistence>true</trt:ForcePersistence>"
                         "</trt:SetAudioEncoderConfiguration>")}) {
        CgiResult r = ask(body);
        EXPECT_EQ(r.status, 400) << body;
        EXPECT_EQ(has(r, "ter:ConfigModify"), "") << body;
    }
    EXPECT_EQ(readFile(VSRC1), sources);
    EXPECT_EQ(readFile(AENC1), audio);
    EXPECT_EQ(cameraCalls(), "");
}

TEST_F(MediaStreams, OptionsFollowTheModelAndVariant)
{
    const std::string big = "<tt:Resolution><tt:Width>2560</tt:Width><tt:Height>1440</tt:Height></tt:Resolution>";
    word(MODEL_CODE_WORD) = MODEL_A5S_SDK310;
    word(VARIANT_CODE) = VARIANT_GENERIC;  // the model's base options: 1080p at most
    EXPECT_EQ(ask(encoderSet("VideoEncoder1", big)).status, 400);
    word(VARIANT_CODE) = VARIANT_WIDE_SENSOR;  // the variant with the larger sensor
    CgiResult options = ask(withToken("GetVideoEncoderConfigurationOptions", "ConfigurationToken", "VideoEncoder1"));
    EXPECT_EQ(has(options, "<tt:ResolutionsAvailable><tt:Width>2560</tt:Width><tt:Height>1440</tt:Height>"), "");
    CgiResult sources = ask("<trt:GetVideoSources/>");
    EXPECT_EQ(has(sources, "<tt:Width>2560</tt:Width><tt:Height>1440</tt:Height>"), "");
    EXPECT_EQ(ask(encoderSet("VideoEncoder1", big)).status, 200);
    EXPECT_NE(readFile(VENC1).find("Resolution.Width=2560\nResolution.Height=1440\n"), std::string::npos);
    // A model without a file of its own takes the default camera's.
    word(MODEL_CODE_WORD) = MODEL_WITHOUT_OPTIONS;
    word(VARIANT_CODE) = VARIANT_GENERIC;
    CgiResult fallback = ask(withToken("GetVideoEncoderConfigurationOptions", "ConfigurationToken", "VideoEncoder1"));
    EXPECT_EQ(fallback.status, 200);
    EXPECT_EQ(fallback.envelopeBody.find("2560"), std::string::npos);
}

TEST_F(MediaStreams, SourceAndAudioSettersWriteTheirFiles)
{
    word(AUDIO_INPUTS_WORD) = 1;
    CgiResult source = ask("<trt:SetVideoSourceConfiguration><trt:Configuration token=\"VideoSrcConfig1\">"
                           "<tt:Name>Front door</tt:Name><tt:UseCount>9</tt:UseCount><tt:SourceToken>VideoSource1"
                           "</tt:SourceToken><tt:Bounds x=\"0\" y=\"0\" width=\"1920\" height=\"1080\"></tt:Bounds>"
                           "</trt:Configuration><trt:ForcePersistence>true</trt:ForcePersistence>"
                           "</trt:SetVideoSourceConfiguration>");
    EXPECT_EQ(source.status, 200) << source.envelopeBody;
    EXPECT_EQ(readFile(VSRC1), "Name=Front door\nUseCount=4\nSourceToken=VideoSource1\nBounds.x=0\nBounds.y=0\n"
                               "Bounds.width=1920\nBounds.height=1080\n");
    EXPECT_EQ(cameraCalls(), "");  // the camera programs take no source names

    word(VARIANT_CODE) = VARIANT_LENIENT;  // this variant gives sample rates in kHz
    CgiResult audio = ask("<trt:SetAudioEncoderConfiguration><trt:Configuration token=\"AudioEncoder1\">"
                          "<tt:Encoding>G726</tt:Encoding><tt:Bitrate>32</tt:Bitrate><tt:SampleRate>8</tt:SampleRate>"
                          "</trt:Configuration><trt:ForcePersistence>false</trt:ForcePersistence>"
                          "</trt:SetAudioEncoderConfiguration>");
    EXPECT_EQ(audio.status, 200) << audio.envelopeBody;
    EXPECT_NE(readFile(AENC1).find("Encoding=G726\nBitrate=32\nSampleRate=8\n"), std::string::npos);
    EXPECT_EQ(cameraCalls(),
              "/usr/apache/htdocs/cgi-bin/admin/param.cgi QUERY_STRING=action=update&Audio.Encoding=G726"
              "&Audio.Bitrate=32 REMOTE_USER=Admin isOnvif=1\n"
              "/usr/apache/htdocs/cgi-bin/h264/restart_stream.cgi REMOTE_USER=Admin\n");
    word(VARIANT_CODE) = VARIANT_GENERIC;  // the others give Hz, and the file keeps kHz
    CgiResult hz = ask("<trt:SetAudioEncoderConfiguration><trt:Configuration token=\"AudioEncoder1\">"
                       "<tt:Encoding>AAC</tt:Encoding><tt:Bitrate>64</tt:Bitrate><tt:SampleRate>16000</tt:SampleRate>"
                       "</trt:Configuration><trt:ForcePersistence>false</trt:ForcePersistence>"
                       "</trt:SetAudioEncoderConfiguration>");
    EXPECT_EQ(hz.status, 200) << hz.envelopeBody;
    EXPECT_NE(readFile(AENC1).find("Encoding=AAC\nBitrate=64\nSampleRate=16\n"), std::string::npos);
}

TEST_F(MediaStreams, AddressesFollowTheHostTheClientUsed)
{
    struct Case { std::string host; std::string rtsp; std::string http; };
    const std::vector<Case> cases = {
        {"192.168.1.10", "rtsp://192.168.1.10/live/ch1", "http://192.168.1.10/snapshot/ch1.jpg"},
        {"10.0.0.7:8080", "rtsp://10.0.0.7/live/ch1", "http://10.0.0.7:8080/snapshot/ch1.jpg"},
        {"[fe80::1]:8080", "rtsp://[fe80::1]/live/ch1", "http://[fe80::1]:8080/snapshot/ch1.jpg"},
        {"[2001:db8::7]", "rtsp://[2001:db8::7]/live/ch1", "http://[2001:db8::7]/snapshot/ch1.jpg"},
        {"camera-3.example.com:81", "rtsp://camera-3.example.com/live/ch1",
         "http://camera-3.example.com:81/snapshot/ch1.jpg"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(has(ask(streamUri("Profile1"), c.host), "<tt:Uri>" + c.rtsp + "</tt:Uri>"), "") << c.host;
        EXPECT_EQ(has(ask(snapshotUri("Profile1"), c.host), "<tt:Uri>" + c.http + "</tt:Uri>"), "") << c.host;
    }
    // Every transport gets the same rtsp address; multicast gets the group's.
    for (const char* protocol : {"UDP", "TCP", "HTTP"})
        EXPECT_EQ(has(ask(streamUri("Profile2", "RTP-Unicast", protocol), "10.0.0.7:8080"),
                      "<tt:Uri>rtsp://10.0.0.7/live/ch2</tt:Uri>"), "") << protocol;
    EXPECT_EQ(has(ask(streamUri("Profile2", "RTP-Multicast", "UDP"), "10.0.0.7"),
                  "<tt:Uri>rtsp://10.0.0.7/live/ch2/multicast</tt:Uri>"), "");

    std::string conf = readFile("tmp/onvif/onvif.conf");
    size_t at = conf.find("Network.Protocols.RTSP.Port=554");
    ASSERT_NE(at, std::string::npos);
    writeFile("tmp/onvif/onvif.conf", conf.replace(at, 31, "Network.Protocols.RTSP.Port=8554"));
    EXPECT_EQ(has(ask(streamUri("Profile3"), "10.0.0.7:8080"), "<tt:Uri>rtsp://10.0.0.7:8554/live/ch3</tt:Uri>"), "");
    EXPECT_EQ(has(ask(streamUri("Profile3"), "[fe80::1]:8080"), "<tt:Uri>rtsp://[fe80::1]:8554/live/ch3</tt:Uri>"), "");

    word(VARIANT_CODE) = VARIANT_VANTOR;  // this variant serves snapshots under its own path
    EXPECT_EQ(has(ask(snapshotUri("Profile2"), "10.0.0.7"),
                  "<tt:Uri>http://10.0.0.7/vantor-cgi/snapshot.jpg?channel=2</tt:Uri>"), "");
}

TEST_F(MediaStreams, MalformedHostsFallBackToTheCameraAddress)
{
    for (const std::string& host : {std::string("<script>x</script>"), std::string("a b"), std::string("evil\"><x"),
                                    std::string("1.2.3.4$(reboot)"), std::string("[fe80::1"), std::string("[::1]x"),
                                    std::string("host:99999"), std::string("host:80:81"), std::string("999.1.1.1"),
                                    std::string("-bad.example"), std::string("a&b"), std::string(300, 'h')}) {
        CgiResult stream = ask(streamUri("Profile1"), host);
        CgiResult snapshot = ask(snapshotUri("Profile1"), host);
        EXPECT_EQ(has(stream, "<tt:Uri>rtsp://192.168.0.100/live/ch1</tt:Uri>"), "") << host;
        EXPECT_EQ(has(snapshot, "<tt:Uri>http://192.168.0.100/snapshot/ch1.jpg</tt:Uri>"), "") << host;
        for (const char* piece : {"<script", "&lt;script", "a b", "evil", "reboot", "99999", "&amp;b", "hhhh"}) {
            EXPECT_EQ(stream.body.find(piece), std::string::npos) << host;
            EXPECT_EQ(snapshot.body.find(piece), std::string::npos) << host;
        }
    }
    // Without a client host the configured HTTP port is kept.
    std::string conf = readFile("tmp/onvif/onvif.conf");
    size_t at = conf.find("Network.Protocols.HTTP.Port=80\n");
    ASSERT_NE(at, std::string::npos);
    writeFile("tmp/onvif/onvif.conf", conf.replace(at, 31, "Network.Protocols.HTTP.Port=8000\n"));
    EXPECT_EQ(has(ask(snapshotUri("Profile1"), "bad host"),
                  "<tt:Uri>http://192.168.0.100:8000/snapshot/ch1.jpg</tt:Uri>"), "");
}

TEST_F(MediaStreams, StreamFaults)
{
    call("<trt:CreateProfile><trt:Name>Empty</trt:Name><trt:Token>Empty</trt:Token></trt:CreateProfile>");
    struct Case { std::string body; std::string fault; };
    for (const Case& c : {Case{streamUri("Nothing"), "ter:NoProfile"}, Case{snapshotUri("Nothing"), "ter:NoProfile"},
                          Case{streamUri("Empty"), "ter:IncompleteConfiguration"},
                          Case{snapshotUri("Empty"), "ter:IncompleteConfiguration"},
                          Case{streamUri("Profile1", "RTP-Broadcast"), "ter:InvalidStreamSetup"},
                          Case{streamUri("Profile1", "RTP-Unicast", "SCTP"), "ter:InvalidStreamSetup"},
                          Case{withToken("StartMulticastStreaming", "ProfileToken", "Nothing"), "ter:NoProfile"},
                          Case{withToken("StopMulticastStreaming", "ProfileToken", "../x"), "ter:NoProfile"},
                          Case{withToken("GetVideoSourceConfiguration", "ConfigurationToken", "Nope"), "ter:NoConfig"},
                          Case{withToken("GetVideoEncoderConfiguration", "ConfigurationToken", "Nope"), "ter:NoConfig"},
                          Case{withToken("GetVideoEncoderConfigurationOptions", "ConfigurationToken", "Nope"), "ter:NoConfig"},
                          Case{withToken("GetVideoEncoderConfigurationOptions", "ProfileToken", "Nope"), "ter:NoProfile"},
                          Case{withToken("GetCompatibleVideoEncoderConfigurations", "ProfileToken", "Nope"), "ter:NoProfile"},
                          Case{withToken("GetGuaranteedNumberOfVideoEncoderInstances", "ConfigurationToken", "Nope"), "ter:NoConfig"},
                          Case{"<trt:GetAudioOutputConfigurationOptions/>", "ter:AudioOutputNotSupported"}}) {
        CgiResult r = ask(c.body);
        EXPECT_EQ(r.status, 400) << c.body;
        EXPECT_EQ(has(r, c.fault), "") << c.body;
    }
    EXPECT_EQ(cameraCalls(), "");
}

TEST_F(MediaStreams, MulticastStartAndStopTellTheStreamProgram)
{
    EXPECT_EQ(ask(withToken("StartMulticastStreaming", "ProfileToken", "Profile2")).envelopeBody,
              "<trt:StartMulticastStreamingResponse></trt:StartMulticastStreamingResponse>");
    word(WEB_USER_WORD) = WEB_USER_ADMIN;
    EXPECT_EQ(ask(withToken("StopMulticastStreaming", "ProfileToken", "Profile2")).status, 200);
    EXPECT_EQ(cameraCalls(),
              "/usr/apache/htdocs/cgi-bin/h264/restart_stream.cgi QUERY_STRING=action=multicast_start&encoder="
              "VideoEncoder2 REMOTE_USER=Admin\n"
              "/usr/apache/htdocs/cgi-bin/h264/restart_stream.cgi QUERY_STRING=action=multicast_stop&encoder="
              "VideoEncoder2 REMOTE_USER=admin\n");
}

}  // namespace
