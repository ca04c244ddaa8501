// The device-state segment as a restarting daemon leaves it: never created,
// too small, or removed and created again while requests run. Every answer
// stays a well-formed envelope (the not-ready fault or a real answer), no
// request crashes, and the service works again once the segment is back.
#include "tests/fixture.h"

#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <tinyxml.h>
#include <unistd.h>

namespace {

// Readers and writers of every service; the segment decides for each.
const char* const ACTIONS[] = {
    "<tds:GetDeviceInformation/>",
    "<tds:GetCapabilities/>",
    "<trt:GetProfiles/>",
    "<trt:GetStreamUri><trt:ProfileToken>Profile1</trt:ProfileToken></trt:GetStreamUri>",
    "<tptz:GetStatus><tptz:ProfileToken>Profile1</tptz:ProfileToken></tptz:GetStatus>",
    "<timg:GetImagingSettings><timg:VideoSourceToken>VideoSource1</timg:VideoSourceToken></timg:GetImagingSettings>",
    "<tds:SetScopes><tds:Scopes>onvif://www.onvif.org/name/again</tds:Scopes></tds:SetScopes>",
    "<tev:CreatePullPointSubscription/>",
    "<tev:PullMessages><tev:Timeout>PT1S</tev:Timeout><tev:MessageLimit>1</tev:MessageLimit></tev:PullMessages>",
};

class SegmentRestart : public CameraTest {
protected:
    void dropSegment()
    {
        if (words)
            shmdt(words);
        words = nullptr;
        if (segmentId >= 0)
            shmctl(segmentId, IPC_RMID, nullptr);
        segmentId = -1;
    }

    // A new segment of size bytes under the root's key; ready when it holds the word.
    void makeSegment(size_t size)
    {
        key_t key = ftok(path("tmp/ONVIF_SHM/onvif").c_str(), 0);
        segmentId = shmget(key, size, 0666 | IPC_CREAT | IPC_EXCL);
        ASSERT_GE(segmentId, 0);
        void* p = shmat(segmentId, nullptr, 0);
        ASSERT_NE(p, (void*)-1);
        words = (int*)p;
        if (size >= 2 * sizeof(int))
            words[1] = 1;
    }

    static void expectWellFormed(const std::string& raw, const std::string& what)
    {
        int status = raw.rfind("Status: ", 0) == 0 ? atoi(raw.c_str() + 8) : 0;
        EXPECT_TRUE(status == 200 || status == 400) << what << "\n" << raw.substr(0, 200);
        size_t blank = raw.find("\r\n\r\n");
        ASSERT_NE(blank, std::string::npos) << what;
        TiXmlDocument doc;
        doc.Parse(raw.c_str() + blank + 4);
        EXPECT_FALSE(doc.Error()) << what << ": " << doc.ErrorDesc();
        EXPECT_NE(raw.find("</SOAP-ENV:Envelope>"), std::string::npos) << what;
    }

    void expectNotReadyEverywhere(const std::string& state)
    {
        for (const char* action : ACTIONS) {
            CgiResult r = call(action);
            EXPECT_EQ(r.status, 400) << state << ": " << action;
            EXPECT_EQ(r.envelopeBody, "") << state << ": " << action;
            expectWellFormed(r.raw, state + ": " + action);
        }
    }

    void expectServed()
    {
        for (const char* action : {"<tds:GetDeviceInformation/>", "<trt:GetProfiles/>"})
            EXPECT_EQ(call(action).status, 200) << action;
    }
};

TEST_F(SegmentRestart, MissingOrTooSmallSegmentIsAnsweredNotReadyUntilItIsBack)
{
    dropSegment();
    expectNotReadyEverywhere("no segment");
    makeSegment(64);
    expectNotReadyEverywhere("a segment too small");
    dropSegment();
    makeSegment(4096);
    expectServed();
}

TEST_F(SegmentRestart, SegmentRemovedAndCreatedAgainWhileRequestsRun)
{
    const int clients = 4, rounds = 6;
    for (int round = 0; round < rounds; ++round) {
        std::vector<pid_t> pids;
        for (int c = 0; c < clients; ++c) {
            std::string body = soap(ACTIONS[(round * clients + c) % (sizeof ACTIONS / sizeof *ACTIONS)]);
            std::string in = "in-" + std::to_string(c);
            writeFile(in, body);
            pids.push_back(spawnService({"HOST=192.168.0.100", "CONTENT_LENGTH=" + std::to_string(body.size())},
                                        path(in), path("out-" + std::to_string(c))));
        }
        // The daemon restarts under the running requests: gone, back empty, ready.
        dropSegment();
        usleep(2000);
        makeSegment(4096);
        words[1] = 0;
        usleep(2000);
        words[1] = 1;
        for (int c = 0; c < clients; ++c) {
            int status = 0;
            waitpid(pids[c], &status, 0);
            EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "a request crashed";
            expectWellFormed(readFile("out-" + std::to_string(c)), "round " + std::to_string(round));
        }
    }
    expectServed();
}

TEST_F(SegmentRestart, MissingSegmentIsAServiceThatIsNotReady)
{
    shmctl(segmentId, IPC_RMID, nullptr);
    CgiResult r = call("<tds:GetDeviceInformation/>");
    EXPECT_EQ(r.status, 400);
    EXPECT_EQ(r.envelopeBody, "");
}

}  // namespace
