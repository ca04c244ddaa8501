// Many requests at once through the real program: writers of the settings
// and list files never lose each other's changes, and status queries never
// read another request's half-written answer file.
#include "tests/fixture.h"

#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <set>
#include <thread>

namespace {

class Concurrent : public CameraTest {
protected:
    void SetUp() override
    {
#ifdef ONVIF_EMULATOR
        // qemu's user mode cannot start processes from many threads at once;
        // the locking these tests check is the same on every architecture.
        GTEST_SKIP() << "many-threaded process starts are not emulated";
#endif
        CameraTest::SetUp();
    }
    // Runs each worker's list of requests in order, the workers at once, each
    // request on files of its own. Returns how many answers accept refused.
    int runWorkers(const std::vector<std::vector<std::string>>& workers,
                   std::function<bool(const std::string&)> accept = [](const std::string& answer) {
                       return statusOf(answer) == 200;
                   })
    {
        std::atomic<int> failed{0};
        std::vector<std::thread> threads;
        for (size_t w = 0; w < workers.size(); ++w)
            threads.emplace_back([&, w] {
                for (size_t k = 0; k < workers[w].size(); ++k) {
                    std::string tag = std::to_string(w) + "-" + std::to_string(k);
                    pid_t pid = start(workers[w][k], tag);
                    if (pid < 0 || !finished(pid) || !accept(answerOf(tag)))
                        ++failed;
                }
            });
        for (auto& t : threads)
            t.join();
        return failed;
    }

    // The file as some serial order leaves it: the lines it started with, in
    // their order, then the added lines in any order.
    void expectSerialResult(const std::string& rel, const std::vector<std::string>& kept,
                            std::set<std::string> added)
    {
        std::vector<std::string> now = lines(readFile(rel));
        ASSERT_GE(now.size(), kept.size()) << rel;
        EXPECT_TRUE(std::equal(kept.begin(), kept.end(), now.begin())) << rel;
        std::multiset<std::string> tail(now.begin() + (long)kept.size(), now.end());
        EXPECT_EQ(tail, std::multiset<std::string>(added.begin(), added.end())) << rel << "\n" << readFile(rel);
    }

    // Nothing of the requests may stay: no work copy beside a store file,
    // no program still running in the root.
    void expectNothingLeftBehind()
    {
        for (const char* dir : {"tmp/onvif", "usr/apache/htdocs/onvif"})
            for (auto& file : filesUnder(dir, false))
                for (const char* workCopy : {".conf.", ".profile."})
                    EXPECT_EQ(file.first.find(workCopy), std::string::npos) << file.first;
        // "[/]tmp/..." matches the root's programs but not this pgrep's own shell.
        EXPECT_NE(system(("pgrep -f '[/]" + root.substr(1) + "' > /dev/null").c_str()), 0);
        key_t key = ftok(path("tmp/ONVIF_SHM/onvif").c_str(), 0);
        EXPECT_EQ(shmget(key, 0, 0), segmentId);  // still the test's own, and only it
    }
};

const char USERS[] = "usr/apache/htdocs/onvif/Users.conf";
const char PROFILES[] = "tmp/onvif/Profiles.conf";
const char CONF[] = "tmp/onvif/onvif.conf";

std::string createUser(const std::string& name)
{
    return "<tds:CreateUsers><tds:User><tt:Username>" + name + "</tt:Username><tt:Password>pw" + name +
           "</tt:Password><tt:UserLevel>User</tt:UserLevel></tds:User></tds:CreateUsers>";
}

TEST_F(Concurrent, WritersEndAsSomeSerialOrderWould)
{
    std::map<std::string, std::vector<std::string>> before;
    for (const char* rel : {USERS, PROFILES, CONF})
        before[rel] = lines(readFile(rel));
    std::map<std::string, std::set<std::string>> added;
    auto id = [](size_t w, int j) { return "w" + std::to_string(w) + "n" + std::to_string(j); };
    std::vector<std::vector<std::string>> workers(8);
    for (size_t w = 0; w < workers.size(); ++w)
        for (int j = 0; j < 4; ++j) {
            std::string name = id(w, j), scope = "onvif://www.onvif.org/name/" + name;
            workers[w].push_back(createUser(name));
            workers[w].push_back("<tds:AddScopes><tds:ScopeItem>" + scope + "</tds:ScopeItem></tds:AddScopes>");
            workers[w].push_back("<trt:CreateProfile><trt:Name>" + name + "</trt:Name><trt:Token>P" + name +
                                 "</trt:Token></trt:CreateProfile>");
            added[CONF].insert("ConfigurableScopes=" + scope);
            if (j % 2 == 0)
                continue;
            // The user and profile of the round before go again.
            workers[w].push_back("<tds:DeleteUsers><tds:Username>" + id(w, j - 1) + "</tds:Username></tds:DeleteUsers>");
            workers[w].push_back("<trt:DeleteProfile><trt:ProfileToken>P" + id(w, j - 1) +
                                 "</trt:ProfileToken></trt:DeleteProfile>");
            added[USERS].insert(name + ":User:pw" + name);
            added[PROFILES].insert("profile filename=P" + name + ".profile");
        }
    EXPECT_EQ(runWorkers(workers), 0);
    for (auto& file : before)
        expectSerialResult(file.first, file.second, added[file.first]);
    EXPECT_EQ(readFile("usr/apache/htdocs/onvif/onvif.conf"), readFile(CONF));
    for (size_t w = 0; w < workers.size(); ++w)
        for (int j = 0; j < 4; ++j)
            EXPECT_EQ(exists("tmp/onvif/P" + id(w, j) + ".profile"), j % 2 == 1) << id(w, j);
    expectNothingLeftBehind();
}

TEST_F(Concurrent, StatusQueriesNeverShareTheirAnswerFiles)
{
    word(PAN_TILT_WORD) = PAN_TILT_RS485;
    word(ZOOM_WORD) = LENS_SPLIT_SIXTH_STEP;
    word(IO_LAYOUT_WORD) = IO_LAYOUT_HEAD;
    // Query programs that take a while and note when two of them run at once.
    const std::string overlapCheck =
        "#!/bin/sh\n"
        "mkdir \"$ONVIF_ROOT/query-running\" 2>/dev/null || echo overlap >> \"$ONVIF_ROOT/overlaps\"\n"
        "sleep 0.05\nprintf '%s'\nsleep 0.05\n"
        "rmdir \"$ONVIF_ROOT/query-running\" 2>/dev/null\n";
    auto standIn = [&](const std::string& rel, const std::string& output) {
        std::string script = overlapCheck;
        script.replace(script.find("%s"), 2, output);
        writeFile(rel, script);
        shell("chmod 755 '" + path(rel) + "'");
    };
    standIn("home/aaaserver/viscaClient", "zoom = 5\\n");
    standIn("root/testShareMemClient", "pan = 90.0\\ntilt = 0.0\\nzoom = 5\\n");
    const std::vector<std::string> queries(4, "<tptz:GetStatus><tptz:ProfileToken>Profile1</tptz:ProfileToken>"
                                              "</tptz:GetStatus>");
    auto itsOwn = [](const std::string& raw) {
        return raw.find("y=\"-1\" x=\"0.5\"></tt:PanTilt>") != std::string::npos;
    };
    EXPECT_EQ(runWorkers({queries, queries, queries, queries}, itsOwn), 0);
    EXPECT_FALSE(exists("overlaps")) << readFile("overlaps");
    expectNothingLeftBehind();
}

// A removal that waits for the settings file to come back must not keep
// every other writer out meanwhile.
TEST_F(Concurrent, AWaitForAMissingFileLeavesOtherWritersFree)
{
    const std::string conf = readFile("tmp/onvif/onvif.conf");
    removeFile("tmp/onvif/onvif.conf");
    pid_t waiting = start("<tds:RemoveScopes><tds:ScopeItem>onvif://www.onvif.org/name/x</tds:ScopeItem>"
                          "</tds:RemoveScopes>", "remove");
    ASSERT_GE(waiting, 0);
    for (int i = 0; i < 1000 && errorLog().find("RemoveScopes") == std::string::npos; ++i)
        usleep(20000);
    CgiResult other = call("<tds:CreateUsers><tds:User><tt:Username>waiter</tt:Username><tt:Password>secret1"
                           "</tt:Password><tt:UserLevel>User</tt:UserLevel></tds:User></tds:CreateUsers>");
    EXPECT_EQ(other.status, 200) << other.envelopeBody;
    writeFile("tmp/onvif/onvif.conf", conf);
    finished(waiting);
    EXPECT_NE(statusOf(answerOf("remove")), 0);
}

}  // namespace
