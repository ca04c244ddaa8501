// Writers killed at random points while readers run: every settings file must
// come out as some writer's complete version (its keys in order, each line
// one a writer writes), never empty or torn, and the next request works.
#include "tests/fixture.h"

#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <random>
#include <set>

#ifdef ONVIF_WRITE_FAULT_SHIM

namespace {

// Each writer changes values of keys its files already have, in two variants.
const char* const VARIANTS[][4] = {
    {"<tds:SetHostname><tds:Name>", "</tds:Name></tds:SetHostname>", "cam-a", "cam-b"},
    {"<tds:SetDiscoveryMode><tds:DiscoveryMode>", "</tds:DiscoveryMode></tds:SetDiscoveryMode>", "Discoverable",
     "NonDiscoverable"},
    {"<timg:SetImagingSettings><timg:VideoSourceToken>VideoSource1</timg:VideoSourceToken><timg:ImagingSettings>"
     "<tt:Brightness>", "</tt:Brightness></timg:ImagingSettings></timg:SetImagingSettings>", "30", "70"},
    {"<tds:SetUser><tds:User><tt:Username>onvifuser</tt:Username><tt:Password>",
     "</tt:Password><tt:UserLevel>Operator</tt:UserLevel></tds:User></tds:SetUser>", "secret22", "secret33"},
    {"<trt:SetMetadataConfiguration><trt:Configuration token=\"MetaData1\"><tt:SessionTimeout>",
     "</tt:SessionTimeout></trt:Configuration><trt:ForcePersistence>true</trt:ForcePersistence>"
     "</trt:SetMetadataConfiguration>", "PT30S", "PT40S"},
};

std::vector<std::string> writerBodies()
{
    std::vector<std::string> bodies;
    for (auto& v : VARIANTS)
        for (int i : {2, 3})
            bodies.push_back(std::string(v[0]) + v[i] + v[1]);
    return bodies;
}

const char* const READERS[] = {"<tds:GetScopes/>", "<tds:GetUsers/>", "<tds:GetHostname/>",
                               "<timg:GetImagingSettings><timg:VideoSourceToken>VideoSource1</timg:VideoSourceToken>"
                               "</timg:GetImagingSettings>"};

// The key of a settings line, or the account name of a user line.
std::string keyOf(const std::string& line)
{
    return line.substr(0, line.find_first_of("=:"));
}

// A file and its copy under the web root take each other's lines.
std::string copiesOf(const std::string& rel)
{
    return rel.substr(rel.rfind('/') + 1);
}

class PowerCut : public CameraTest {
protected:
    // The settings directories the writers change, without their lock files.
    std::map<std::string, std::string> store() const
    {
        std::map<std::string, std::string> files;
        for (const char* dir : {"tmp/onvif", "usr/apache/htdocs/onvif", "etc/sysconfig"})
            for (auto& file : filesUnder(dir, false))
                if (file.first.find(".lock") == std::string::npos)
                    files.insert(file);
        return files;
    }

    pid_t startCut(const std::string& body, int n)
    {
        return start(body, std::to_string(n),
                     {std::string("LD_PRELOAD=") + ONVIF_WRITE_FAULT_SHIM, "WRITE_FAULT_NO_WAIT=1"});
    }
};

TEST_F(PowerCut, KilledWritersLeaveEveryFileWholeAndTheNextRequestWorks)
{
    const auto original = store();
    // Every line a writer writes, from each variant run alone on the original store.
    std::map<std::string, std::set<std::string>> allowed;
    auto allow = [&](const std::map<std::string, std::string>& files) {
        for (auto& file : files)
            for (auto& l : lines(file.second))
                allowed[copiesOf(file.first)].insert(l);
    };
    auto restore = [&] {
        for (auto& file : original)
            writeFile(file.first, file.second);
    };
    allow(original);
    for (const std::string& body : writerBodies()) {
        restore();
        CgiResult r = call(body);
        ASSERT_EQ(r.status, 200) << body << r.envelopeBody;
        allow(store());
    }
    restore();

    std::mt19937 random(12345);
    int kills = 0;
    for (int round = 0; round < 40; ++round) {
        std::vector<pid_t> writers;
        for (int w = 0; w < 3; ++w)
            writers.push_back(startCut(writerBodies()[random() % writerBodies().size()], w));
        pid_t reader = startCut(READERS[round % 4], 9);
        struct timespec pause = {0, (long)(random() % 8000) * 1000L};
        nanosleep(&pause, nullptr);
        for (pid_t pid : writers)
            if (random() % 3 != 0 && kill(pid, SIGKILL) == 0)
                ++kills;
        for (pid_t pid : writers)
            waitpid(pid, nullptr, 0);
        EXPECT_TRUE(finished(reader));
        EXPECT_EQ(statusOf(answerOf("9")), 200) << READERS[round % 4];
    }
    EXPECT_GT(kills, 40);

    for (auto& file : original) {
        std::string now = readFile(file.first);
        ASSERT_TRUE(exists(file.first)) << file.first;
        if (file.second.empty())
            continue;
        EXPECT_FALSE(now.empty()) << file.first;
        EXPECT_EQ(now.back(), file.second.back()) << file.first << " is cut";
        std::vector<std::string> was = lines(file.second), is = lines(now);
        ASSERT_EQ(is.size(), was.size()) << file.first << ":\n" << now;
        for (size_t i = 0; i < is.size(); ++i) {
            EXPECT_EQ(keyOf(is[i]), keyOf(was[i])) << file.first;
            EXPECT_TRUE(allowed[copiesOf(file.first)].count(is[i])) << file.first << ": no writer writes " << is[i];
        }
    }
    for (const std::string& body : writerBodies())
        EXPECT_EQ(call(body).status, 200) << body;
    for (const char* body : READERS)
        EXPECT_EQ(call(body).status, 200) << body;
}

}  // namespace

#endif
