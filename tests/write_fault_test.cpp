// Writers on a failing disk: each file call a writer makes fails in turn
// (and, as a full disk, every one from there on); every file must stay the
// old one or become the new one, no work file may stay behind, and a change
// not made is never answered 200.
#include "tests/fixture.h"

#include <string.h>

#ifdef ONVIF_WRITE_FAULT_SHIM

namespace {

// Files the program writes that are no store: logs, and the fixture's own.
const char* const NOT_STORE[] = {"camera_calls.log", "tmp/onvif_error", "request.body", "response.out", "tally"};

using Snapshot = std::map<std::string, std::string>;

struct Writer {
    const char* name;
    std::string body;
    std::vector<std::pair<int, int>> words;  // set before the writer runs
    std::vector<std::string> setup;          // requests run before, when the writer needs them
    std::string seedFile, seedContent;       // a file written before, when the writer needs it
};

std::string item(const char* action, const char* element, const std::string& value)
{
    return std::string("<tds:") + action + "><tds:" + element + ">" + value + "</tds:" + element + "></tds:" + action + ">";
}

const char CREATE_ANN[] = "<tds:CreateUsers><tds:User><tt:Username>ann</tt:Username><tt:Password>secret1</tt:Password>"
                          "<tt:UserLevel>User</tt:UserLevel></tds:User></tds:CreateUsers>";
const char CREATE_P9[] = "<trt:CreateProfile><trt:Name>faulty</trt:Name><trt:Token>P9</trt:Token></trt:CreateProfile>";

// One request for every writer of the settings files, the user file, the
// profile and configuration stores and the event files. When a second mode
// of the service exists, its writers join this table with the mode's words.
const std::vector<Writer>& writers()
{
    static const std::vector<Writer> table = {
        {"SetScopes", "<tds:SetScopes><tds:Scopes>onvif://www.onvif.org/name/fault</tds:Scopes></tds:SetScopes>"},
        {"AddScopes", item("AddScopes", "ScopeItem", "onvif://www.onvif.org/name/added")},
        {"RemoveScopes", item("RemoveScopes", "ScopeItem", "onvif://www.onvif.org/location/country/")},
        {"SetDiscoveryMode", item("SetDiscoveryMode", "DiscoveryMode", "NonDiscoverable")},
        {"SetHostname", item("SetHostname", "Name", "cam-01.lab")},
        {"SetSystemDateAndTime",
         "<tds:SetSystemDateAndTime><tds:DateTimeType>Manual</tds:DateTimeType><tds:DaylightSavings>false"
         "</tds:DaylightSavings><tds:TimeZone><tt:TZ>CET-1CEST,M3.5.0,M10.5.0/3</tt:TZ></tds:TimeZone><tds:UTCDateTime>"
         "<tt:Date><tt:Year>2027</tt:Year><tt:Month>1</tt:Month><tt:Day>1</tt:Day></tt:Date><tt:Time><tt:Hour>0"
         "</tt:Hour><tt:Minute>30</tt:Minute><tt:Second>5</tt:Second></tt:Time></tds:UTCDateTime>"
         "</tds:SetSystemDateAndTime>"},
        {"SetNTPTime", "<tds:SetSystemDateAndTime><tds:DateTimeType>NTP</tds:DateTimeType><tds:DaylightSavings>true"
                       "</tds:DaylightSavings></tds:SetSystemDateAndTime>"},
        {"DeleteUsers", item("DeleteUsers", "Username", "ann"), {}, {CREATE_ANN}},
        {"CreateUsers", CREATE_ANN},
        {"SetUser", "<tds:SetUser><tds:User><tt:Username>onvifuser</tt:Username><tt:Password>secret22</tt:Password>"
                    "<tt:UserLevel>Operator</tt:UserLevel></tds:User></tds:SetUser>"},
        {"CreateProfile", CREATE_P9},
        {"DeleteProfile", "<trt:DeleteProfile><trt:ProfileToken>P9</trt:ProfileToken></trt:DeleteProfile>", {}, {CREATE_P9}},
        {"SetVideoEncoderConfiguration",
         "<trt:SetVideoEncoderConfiguration><trt:Configuration token=\"VideoEncoder1\"><tt:Name>VideoEncoder1</tt:Name>"
         "<tt:UseCount>1</tt:UseCount><tt:Encoding>H264</tt:Encoding><tt:Resolution><tt:Width>1280</tt:Width>"
         "<tt:Height>720</tt:Height></tt:Resolution><tt:Quality>80</tt:Quality><tt:RateControl><tt:FrameRateLimit>15"
         "</tt:FrameRateLimit><tt:EncodingInterval>1</tt:EncodingInterval><tt:BitrateLimit>2048</tt:BitrateLimit>"
         "</tt:RateControl><tt:H264><tt:GovLength>30</tt:GovLength><tt:H264Profile>Main</tt:H264Profile></tt:H264>"
         "<tt:Multicast><tt:Address><tt:Type>IPv4</tt:Type><tt:IPv4Address>239.0.0.1</tt:IPv4Address></tt:Address>"
         "<tt:Port>5560</tt:Port><tt:TTL>1</tt:TTL><tt:AutoStart>false</tt:AutoStart></tt:Multicast>"
         "<tt:SessionTimeout>PT60S</tt:SessionTimeout></trt:Configuration>"
         "<trt:ForcePersistence>true</trt:ForcePersistence></trt:SetVideoEncoderConfiguration>"},
        {"SetMetadataConfiguration",
         "<trt:SetMetadataConfiguration><trt:Configuration token=\"MetaData1\"><tt:SessionTimeout>PT30S"
         "</tt:SessionTimeout></trt:Configuration><trt:ForcePersistence>true</trt:ForcePersistence>"
         "</trt:SetMetadataConfiguration>"},
        {"SetImagingSettings", "<timg:SetImagingSettings><timg:VideoSourceToken>VideoSource1</timg:VideoSourceToken>"
                               "<timg:ImagingSettings><tt:Brightness>40</tt:Brightness></timg:ImagingSettings>"
                               "</timg:SetImagingSettings>"},
        {"PTZSetConfiguration",
         "<tptz:SetConfiguration><tptz:PTZConfiguration token=\"PTZConfig1\"><tt:DefaultPTZTimeout>PT9S"
         "</tt:DefaultPTZTimeout></tptz:PTZConfiguration><tptz:ForcePersistence>true</tptz:ForcePersistence>"
         "</tptz:SetConfiguration>",
         {{16, 2}, {17, 6}, {18, 2}}},
        {"SetRelayOutputSettings",
         "<tds:SetRelayOutputSettings><tds:RelayOutputToken>IO_Output1</tds:RelayOutputToken><tds:Properties>"
         "<tt:Mode>Astable</tt:Mode><tt:DelayTime>PT601S</tt:DelayTime><tt:IdleState>closed</tt:IdleState>"
         "</tds:Properties></tds:SetRelayOutputSettings>",
         {{18, 1}, {66, 2}}},
        {"CreatePullPointSubscription", "<tev:CreatePullPointSubscription/>"},
        {"PullMessages", "<tev:PullMessages><tev:Timeout>PT1S</tev:Timeout><tev:MessageLimit>5</tev:MessageLimit>"
                         "</tev:PullMessages>", {},
         {"<tev:CreatePullPointSubscription/>", "<tev:PullMessages/>"},  // the first pull takes the initial states
         "tmp/onvif/eventfile1",
         "<wsnt:NotificationMessage><wsnt:Topic Dialect=\"http://docs.oasis-open.org/wsn/t-1/TopicExpression/Simple\">"
         "tns1:VideoSource/MotionAlarm</wsnt:Topic><wsnt:Message><tt:Message UtcTime=\"2026-01-01T00:00:00Z\" "
         "PropertyOperation=\"Changed\"><tt:Source><tt:SimpleItem Name=\"Source\" Value=\"VideoSource1\"></tt:SimpleItem>"
         "</tt:Source><tt:Data><tt:SimpleItem Name=\"State\" Value=\"true\"></tt:SimpleItem></tt:Data></tt:Message>"
         "</wsnt:Message></wsnt:NotificationMessage>\n"},
        {"Subscribe", "<wsnt:Subscribe><wsnt:ConsumerReference><a:Address xmlns:a=\"http://www.w3.org/2005/08/addressing\">"
                      "http://127.0.0.1:9/events</a:Address></wsnt:ConsumerReference></wsnt:Subscribe>"},
    };
    return table;
}

bool holds(const Snapshot& snapshot, const Snapshot::value_type& file)
{
    auto it = snapshot.find(file.first);
    return it != snapshot.end() && it->second == file.second;
}

// gtest names a failing case by its writer, not by its bytes.
void PrintTo(const Writer& w, std::ostream* os) { *os << w.name; }

class WriteFaults : public CameraTest, public ::testing::WithParamInterface<Writer> {
protected:
    Snapshot snapshot() const
    {
        Snapshot s = filesUnder("", true);
        for (const char* skip : NOT_STORE)
            s.erase(skip);
        return s;
    }

    // Puts the store and the segment back to what they were before the writer ran.
    void restore(const Snapshot& old, const std::vector<int>& savedWords)
    {
        for (auto& file : snapshot())
            if (!old.count(file.first))
                removeFile(file.first);
        for (auto& file : old)
            if (readFile(file.first) != file.second || !exists(file.first))
                writeFile(file.first, file.second);
        memcpy(words, savedWords.data(), savedWords.size() * sizeof(int));
        removeFile("tmp/onvif_error");
    }

    // Runs the writer with the n-th counted call failing (0: none); the
    // number of calls the program counted goes to *tally.
    CgiResult runFaulty(long n, const char* err, bool onward, long* tally = nullptr)
    {
        removeFile("tally");
        CgiResult r = run(soap(GetParam().body), "",
                          {{"LD_PRELOAD", ONVIF_WRITE_FAULT_SHIM}, {"WRITE_FAULT_ROOT", root},
                           {"WRITE_FAULT_AT", std::to_string(n)}, {"WRITE_FAULT_ERRNO", err},
                           {"WRITE_FAULT_ONWARD", onward ? "1" : "0"}, {"WRITE_FAULT_TALLY", path("tally")},
                           {"WRITE_FAULT_NO_WAIT", "1"}});
        if (tally)
            *tally = atol(readFile("tally").c_str());
        return r;
    }
};

TEST_P(WriteFaults, EveryFileStaysOldOrBecomesNewAndNoUnmadeChangeIsAnswered200)
{
    for (auto& w : GetParam().words)
        word(w.first) = w.second;
    for (const std::string& request : GetParam().setup)
        ASSERT_EQ(call(request).status, 200) << request;
    if (!GetParam().seedFile.empty())
        writeFile(GetParam().seedFile, GetParam().seedContent);
    std::vector<int> savedWords(words, words + 1024);
    Snapshot old = snapshot();
    long calls = 0;
    CgiResult clean = runFaulty(0, "ENOSPC", false, &calls);
    ASSERT_EQ(clean.status, 200) << clean.envelopeBody;
    Snapshot fresh = snapshot();
    ASSERT_TRUE(fresh != old) << "the request changed nothing: " << clean.envelopeBody;
    ASSERT_GT(calls, 0);
    const char* errs[] = {"ENOSPC", "EIO", "EROFS"};
    for (bool onward : {false, true}) {
        for (long n = 1; n <= calls; ++n) {
            restore(old, savedWords);
            const char* err = onward ? "ENOSPC" : errs[n % 3];
            CgiResult r = runFaulty(n, err, onward);
            std::string where = std::string(onward ? "full disk from call " : "call ") + std::to_string(n) + " (" + err + ")";
            Snapshot now = snapshot();
            for (auto& file : now)
                EXPECT_TRUE(holds(old, file) || holds(fresh, file)) << where << ": " << file.first << " is neither version";
            for (auto& file : fresh)
                EXPECT_TRUE(old.count(file.first) == 0 || now.count(file.first)) << where << ": " << file.first << " is gone";
            if (r.status == 200) {
                EXPECT_TRUE(now == fresh) << where << ": answered 200 for a change not made";
            } else {
                EXPECT_TRUE(r.status == 400 || r.status == 500) << where << r.envelopeBody;
                EXPECT_FALSE(errorLog().empty()) << where << ": the error log has no line";
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Writers, WriteFaults, ::testing::ValuesIn(writers()),
                         [](const ::testing::TestParamInfo<Writer>& info) { return std::string(info.param.name); });

}  // namespace

#endif
