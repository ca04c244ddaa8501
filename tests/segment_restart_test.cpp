// The device-state segment as a restarting daemon leaves it: never created,
// too small, or removed and created again while requests run. Every answer
// stays a well-formed envelope (the not-ready fault or a real answer), no
// request crashes, and the service works again once the segment is back.
#include "tests/fixture.h"

#include <sys/ipc.h>
#include <sys/shm.h>
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
        EXPECT_TRUE(statusOf(raw) == 200 || statusOf(raw) == 400) << what << "\n" << raw.substr(0, 200);
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
    // Removed while this process still holds it: gone for everyone else.
    shmctl(segmentId, IPC_RMID, nullptr);
    expectNotReadyEverywhere("a segment removed");
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
        for (int c = 0; c < clients; ++c)
            pids.push_back(start(ACTIONS[(round * clients + c) % (sizeof ACTIONS / sizeof *ACTIONS)], std::to_string(c)));
        // The daemon restarts under the running requests: gone, back empty, ready.
        dropSegment();
        usleep(2000);
        makeSegment(4096);
        words[1] = 0;
        usleep(2000);
        words[1] = 1;
        for (int c = 0; c < clients; ++c) {
            EXPECT_TRUE(finished(pids[c])) << "a request crashed";
            expectWellFormed(answerOf(std::to_string(c)), "round " + std::to_string(round));
        }
    }
    expectServed();
}

}  // namespace
