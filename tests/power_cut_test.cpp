// Writers killed at random points while readers run: every settings file must
// come out as some writer's complete version (its keys in order, each line
// one a writer writes), never empty or torn, and the next request works.
#include "tests/fixture.h"

#include <dirent.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <random>
#include <set>
#include <sstream>

#ifdef ONVIF_WRITE_FAULT_SHIM

namespace {

// Each writer changes values of keys its files already have, in two variants.
const std::vector<std::string>& writerBodies()
{
    static const std::vector<std::string> bodies = [] {
        std::vector<std::string> b;
        for (const char* v : {"cam-a", "cam-b"})
            b.push_back(std::string("<tds:SetHostname><tds:Name>") + v + "</tds:Name></tds:SetHostname>");
        for (const char* v : {"Discoverable", "NonDiscoverable"})
            b.push_back(std::string("<tds:SetDiscoveryMode><tds:DiscoveryMode>") + v +
                        "</tds:DiscoveryMode></tds:SetDiscoveryMode>");
        for (const char* v : {"30", "70"})
            b.push_back(std::string("<timg:SetImagingSettings><timg:VideoSourceToken>VideoSource1</timg:VideoSourceToken>"
                                    "<timg:ImagingSettings><tt:Brightness>") + v +
                        "</tt:Brightness></timg:ImagingSettings></timg:SetImagingSettings>");
        for (const char* v : {"secret22", "secret33"})
            b.push_back(std::string("<tds:SetUser><tds:User><tt:Username>onvifuser</tt:Username><tt:Password>") + v +
                        "</tt:Password><tt:UserLevel>Operator</tt:UserLevel></tds:User></tds:SetUser>");
        for (const char* v : {"PT30S", "PT40S"})
            b.push_back(std::string("<trt:SetMetadataConfiguration><trt:Configuration token=\"MetaData1\">"
                                    "<tt:SessionTimeout>") + v + "</tt:SessionTimeout></trt:Configuration>"
                        "<trt:ForcePersistence>true</trt:ForcePersistence></trt:SetMetadataConfiguration>");
        return b;
    }();
    return bodies;
}

const char* const READERS[] = {"<tds:GetScopes/>", "<tds:GetUsers/>", "<tds:GetHostname/>",
                               "<timg:GetImagingSettings><timg:VideoSourceToken>VideoSource1</timg:VideoSourceToken>"
                               "</timg:GetImagingSettings>"};

// The settings directories the writers above change.
const char* const STORE_DIRS[] = {"tmp/onvif", "usr/apache/htdocs/onvif", "etc/sysconfig"};

std::vector<std::string> lines(const std::string& text)
{
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string l; std::getline(in, l);)
        out.push_back(l);
    return out;
}

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
    std::map<std::string, std::string> store() const
    {
        std::map<std::string, std::string> files;
        for (const char* dir : STORE_DIRS) {
            DIR* d = opendir(path(dir).c_str());
            if (!d)
                continue;
            while (dirent* e = readdir(d)) {
                std::string rel = std::string(dir) + "/" + e->d_name;
                struct stat st;
                if (stat(path(rel).c_str(), &st) == 0 && S_ISREG(st.st_mode) && rel.find(".lock") == std::string::npos)
                    files[rel] = readFile(rel);
            }
            closedir(d);
        }
        return files;
    }

    pid_t start(const std::string& body, int n)
    {
        std::string in = path("in-" + std::to_string(n)), out = path("out-" + std::to_string(n));
        writeFile("in-" + std::to_string(n), soap(body));
        return spawnService({"HOST=192.168.0.100", "CONTENT_LENGTH=" + std::to_string(soap(body).size()),
                             std::string("LD_PRELOAD=") + ONVIF_WRITE_FAULT_SHIM, "WRITE_FAULT_NO_WAIT=1"},
                            in, out);
    }

    int statusOf(int n) const
    {
        std::string raw = readFile("out-" + std::to_string(n));
        return raw.rfind("Status: ", 0) == 0 ? atoi(raw.c_str() + 8) : 0;
    }
};

TEST_F(PowerCut, KilledWritersLeaveEveryFileWholeAndTheNextRequestWorks)
{
    auto original = store();
    // Every line a writer writes, from each variant run alone on the original store.
    std::map<std::string, std::set<std::string>> allowed;
    for (auto& file : original)
        for (auto& l : lines(file.second))
            allowed[copiesOf(file.first)].insert(l);
    for (const std::string& body : writerBodies()) {
        for (auto& file : original)
            writeFile(file.first, file.second);
        CgiResult r = call(body);
        ASSERT_EQ(r.status, 200) << body << r.envelopeBody;
        for (auto& file : store())
            for (auto& l : lines(file.second))
                allowed[copiesOf(file.first)].insert(l);
    }
    for (auto& file : original)
        writeFile(file.first, file.second);

    std::mt19937 random(12345);
    int kills = 0;
    for (int round = 0; round < 40; ++round) {
        std::vector<pid_t> writers;
        for (int w = 0; w < 3; ++w)
            writers.push_back(start(writerBodies()[random() % writerBodies().size()], w));
        pid_t reader = start(READERS[round % 4], 9);
        struct timespec pause = {0, (long)(random() % 8000) * 1000L};
        nanosleep(&pause, nullptr);
        for (pid_t pid : writers)
            if (random() % 3 != 0 && kill(pid, SIGKILL) == 0)
                ++kills;
        for (pid_t pid : writers)
            waitpid(pid, nullptr, 0);
        int status = 0;
        waitpid(reader, &status, 0);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
        EXPECT_EQ(statusOf(9), 200) << READERS[round % 4];
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
