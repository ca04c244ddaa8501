// Many requests at once through the real program: writers of the settings
// and list files never lose each other's changes, and status queries never
// read another request's half-written answer file.
#include "tests/fixture.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <set>
#include <sstream>
#include <thread>
#include <vector>

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
    // Runs one request with files of its own, so that threads can run many
    // at once; returns the answer's status (0 when it did not run).
    int runAlone(const std::string& bodyXml, const std::string& tag, std::string* answer = nullptr)
    {
        const std::string body = soap(bodyXml);
        const std::string in = path("req-" + tag), out = path("resp-" + tag);
        writeFile("req-" + tag, body);
        pid_t pid = spawnService({"HOST=192.168.0.100", "CONTENT_LENGTH=" + std::to_string(body.size())}, in, out);
        if (pid < 0)
            return 0;
        int wstatus = 0;
        waitpid(pid, &wstatus, 0);
        std::string raw = slurp(out);
        if (answer)
            *answer = raw;
        return raw.rfind("Status: ", 0) == 0 ? atoi(raw.c_str() + 8) : 0;
    }

    // Runs each worker's list of requests in order, the workers at once.
    // Returns how many requests were not answered 200.
    int runWorkers(const std::vector<std::vector<std::string>>& workers)
    {
        std::atomic<int> failed{0};
        std::vector<std::thread> threads;
        for (size_t w = 0; w < workers.size(); ++w)
            threads.emplace_back([&, w] {
                for (size_t k = 0; k < workers[w].size(); ++k)
                    if (runAlone(workers[w][k], std::to_string(w) + "-" + std::to_string(k)) != 200)
                        ++failed;
            });
        for (auto& t : threads)
            t.join();
        return failed;
    }

    std::vector<std::string> lines(const std::string& rel)
    {
        std::vector<std::string> out;
        std::istringstream in(readFile(rel));
        for (std::string line; std::getline(in, line);)
            out.push_back(line);
        return out;
    }

    // The file as some serial order leaves it: the lines it started with, in
    // their order, then the added lines in any order.
    void expectSerialResult(const std::string& rel, const std::vector<std::string>& kept,
                            std::set<std::string> added)
    {
        std::vector<std::string> now = lines(rel);
        ASSERT_GE(now.size(), kept.size()) << rel;
        EXPECT_TRUE(std::equal(kept.begin(), kept.end(), now.begin())) << rel;
        std::multiset<std::string> tail(now.begin() + (long)kept.size(), now.end());
        EXPECT_EQ(tail, std::multiset<std::string>(added.begin(), added.end())) << rel << "\n" << readFile(rel);
    }

    // Nothing of the requests may stay: no work copy beside a store file,
    // no program still running in the root.
    void expectNothingLeftBehind()
    {
        for (const char* dir : {"tmp/onvif", "usr/apache/htdocs/onvif"}) {
            std::string listing;
            shell("ls -a '" + path(dir) + "' > '" + path("listing") + "'");
            listing = readFile("listing");
            EXPECT_EQ(listing.find(".conf."), std::string::npos) << listing;
            EXPECT_EQ(listing.find(".profile."), std::string::npos) << listing;
        }
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
    const std::vector<std::string> users = lines(USERS), profiles = lines(PROFILES), conf = lines(CONF);
    const int WORKERS = 8, ROUNDS = 4;
    std::vector<std::vector<std::string>> workers(WORKERS);
    std::set<std::string> userLines, profileLines, scopeLines;
    for (int w = 0; w < WORKERS; ++w) {
        for (int j = 0; j < ROUNDS; ++j) {
            std::string id = "w" + std::to_string(w) + "n" + std::to_string(j);
            std::string scope = "onvif://www.onvif.org/name/" + id;
            workers[w].push_back(createUser(id));
            workers[w].push_back("<tds:AddScopes><tds:ScopeItem>" + scope + "</tds:ScopeItem></tds:AddScopes>");
            workers[w].push_back("<trt:CreateProfile><trt:Name>" + id + "</trt:Name><trt:Token>P" + id +
                                 "</trt:Token></trt:CreateProfile>");
            scopeLines.insert("ConfigurableScopes=" + scope);
            if (j % 2 == 0) {
                userLines.insert(id + ":User:pw" + id);
                profileLines.insert("profile filename=P" + id + ".profile");
                continue;
            }
            std::string previous = "w" + std::to_string(w) + "n" + std::to_string(j - 1);
            workers[w].push_back("<tds:DeleteUsers><tds:Username>" + previous + "</tds:Username></tds:DeleteUsers>");
            workers[w].push_back("<trt:DeleteProfile><trt:ProfileToken>P" + previous +
                                 "</trt:ProfileToken></trt:DeleteProfile>");
            userLines.erase(previous + ":User:pw" + previous);
            userLines.insert(id + ":User:pw" + id);
            profileLines.erase("profile filename=P" + previous + ".profile");
            profileLines.insert("profile filename=P" + id + ".profile");
        }
    }
    EXPECT_EQ(runWorkers(workers), 0);
    expectSerialResult(USERS, users, userLines);
    expectSerialResult(PROFILES, profiles, profileLines);
    expectSerialResult(CONF, conf, scopeLines);
    EXPECT_EQ(readFile("usr/apache/htdocs/onvif/onvif.conf"), readFile(CONF));
    for (int w = 0; w < WORKERS; ++w)
        for (int j = 0; j < ROUNDS; ++j) {
            std::string token = "Pw" + std::to_string(w) + "n" + std::to_string(j);
            EXPECT_EQ(exists("tmp/onvif/" + token + ".profile"), j % 2 == 1) << token;
        }
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
    const std::string getStatus = "<tptz:GetStatus><tptz:ProfileToken>Profile1</tptz:ProfileToken></tptz:GetStatus>";
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (int k = 0; k < 4; ++k) {
                std::string answer;
                runAlone(getStatus, "s" + std::to_string(t) + "-" + std::to_string(k), &answer);
                if (answer.find("y=\"-1\" x=\"0.5\"></tt:PanTilt>") == std::string::npos)
                    ++wrong;
            }
        });
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_FALSE(exists("overlaps")) << readFile("overlaps");
    expectNothingLeftBehind();
}

// A removal that waits for the settings file to come back must not keep
// every other writer out meanwhile.
TEST_F(Concurrent, AWaitForAMissingFileLeavesOtherWritersFree)
{
    const std::string conf = readFile("tmp/onvif/onvif.conf");
    removeFile("tmp/onvif/onvif.conf");
    const std::string body = soap("<tds:RemoveScopes><tds:ScopeItem>onvif://www.onvif.org/name/x</tds:ScopeItem>"
                                  "</tds:RemoveScopes>");
    writeFile("req-remove", body);
    pid_t waiting = spawnService({"HOST=192.168.0.100", "CONTENT_LENGTH=" + std::to_string(body.size())},
                                 path("req-remove"), path("resp-remove"));
    ASSERT_GE(waiting, 0);
    for (int i = 0; i < 1000 && errorLog().find("RemoveScopes") == std::string::npos; ++i)
        usleep(20000);
    CgiResult other = call("<tds:CreateUsers><tds:User><tt:Username>waiter</tt:Username><tt:Password>secret1"
                           "</tt:Password><tt:UserLevel>User</tt:UserLevel></tds:User></tds:CreateUsers>");
    EXPECT_EQ(other.status, 200) << other.envelopeBody;
    writeFile("tmp/onvif/onvif.conf", conf);
    int wstatus = 0;
    waitpid(waiting, &wstatus, 0);
    EXPECT_EQ(slurp(path("resp-remove")).rfind("Status: ", 0), 0u);
}

}  // namespace
