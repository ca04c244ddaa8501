// The end-to-end fixture: one camera root and segment per test.
#include "tests/fixture.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <spawn.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <fstream>
#include <sstream>
#include <vector>

extern char** environ;

std::string slurp(const std::string& file)
{
    std::ifstream in(file, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

void shell(const std::string& cmd)
{
    int rc = system(cmd.c_str());
    ASSERT_EQ(rc, 0) << cmd;
}

int statusOf(const std::string& raw)
{
    return raw.rfind("Status: ", 0) == 0 ? atoi(raw.c_str() + 8) : 0;
}

std::vector<std::string> lines(const std::string& text)
{
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string l; std::getline(in, l);)
        out.push_back(l);
    return out;
}

bool finished(pid_t pid)
{
    int status = 0;
    return waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

static const char* CAMERA_PROGRAMS[] = {
    "admin/param.cgi", "date.cgi", "io/output.cgi", "com/ptz.cgi", "com/ptzconfig.cgi", "h264/restart_stream.cgi",
};

// A fresh camera root whose key file gives a segment key no other test
// holds: keys come from inode numbers and may collide, so a taken key means
// another root.
static int freshRootAndSegment(std::string& root)
{
    std::string src = ONVIF_SOURCE_DIR;
    for (int attempt = 0; attempt < 20; ++attempt) {
        char tmpl[] = "/tmp/onvif-test-XXXXXX";
        if (!mkdtemp(tmpl))
            return -1;
        root = tmpl;
        shell("cp -a '" + src + "/factory/.' '" + root + "/'");
        key_t key = ftok((root + "/tmp/ONVIF_SHM/onvif").c_str(), 0);
        int id = key == (key_t)-1 ? -1 : shmget(key, ONVIF_SHM_WORDS * sizeof(int), 0666 | IPC_CREAT | IPC_EXCL);
        if (id >= 0)
            return id;
        shell("rm -rf '" + root + "'");
        if (errno != EEXIST)
            return -1;
    }
    return -1;
}

void CameraTest::SetUp()
{
    segmentId = freshRootAndSegment(root);
    ASSERT_GE(segmentId, 0) << strerror(errno);
    std::vector<std::string> programs = {"home/aaaserver/viscaClient", "root/testShareMemClient"};
    for (const char* dir : {"usr/apache/htdocs/cgi-bin/", "usr/apache/htdocs/vantor-cgi/"})
        for (const char* program : CAMERA_PROGRAMS)
            programs.push_back(dir + std::string(program));
    for (const std::string& program : programs)
        shell("mkdir -p \"$(dirname '" + path(program) + "')\" && cp '" ONVIF_SOURCE_DIR "/tools/sim/camera-program' '" +
              path(program) + "'");
    void* p = shmat(segmentId, nullptr, 0);
    ASSERT_NE(p, (void*)-1);
    words = (int*)p;
    memset(words, 0, ONVIF_SHM_WORDS * sizeof(int));
    words[SERVICE_READY] = 1;
}

void CameraTest::dropSegment()
{
    if (words)
        shmdt(words);
    words = nullptr;
    if (segmentId >= 0)
        shmctl(segmentId, IPC_RMID, nullptr);
    segmentId = -1;
}

void CameraTest::TearDown()
{
    dropSegment();
    if (!root.empty() && root.rfind("/tmp/onvif-test-", 0) == 0 && !getenv("KEEP_TEST_ROOT"))
        shell("rm -rf '" + root + "'");
}

// Every answer of the suite is checked against the ONVIF schema in one batch
// after the last test: each is kept in ONVIF_ANSWER_DIR under its test's name,
// those of the ONVIF mode under a name starting "onvif-mode." that the check
// allows no exception.
static void keepAnswerForSchemaCheck(const std::string& raw, bool onvifMode)
{
    const char* dir = getenv("ONVIF_ANSWER_DIR");
    const ::testing::TestInfo* test = ::testing::UnitTest::GetInstance()->current_test_info();
    if (!dir || !*dir || !test)
        return;
    static int count = 0;
    std::string name = std::string(dir) + "/" + (onvifMode ? "onvif-mode." : "") + test->test_suite_name() + "." + test->name() + "." +
                       std::to_string(getpid()) + "." + std::to_string(++count) + ".http";
    for (char& c : name)
        if (c == '/' && &c > &name[strlen(dir)])
            c = '_';
    std::ofstream o(name, std::ios::binary);
    o << raw;
}

pid_t CameraTest::spawnService(std::vector<std::string> env, const std::string& in, const std::string& out) const
{
    for (const std::string& base : {std::string("PATH=/usr/bin:/bin"), "ONVIF_ROOT=" + root}) {
        std::string name = base.substr(0, base.find('=') + 1);
        bool given = false;
        for (auto& e : env)
            given = given || e.rfind(name, 0) == 0;
        if (!given)
            env.insert(env.begin(), base);
    }
    for (const char* inherited : {"ASAN_OPTIONS", "UBSAN_OPTIONS"})
        if (getenv(inherited))
            env.push_back(std::string(inherited) + "=" + getenv(inherited));
    std::vector<char*> envp;
    for (auto& e : env)
        envp.push_back(const_cast<char*>(e.c_str()));
    envp.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, in.c_str(), O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    // A command that ran by mistake writes its canary where the checks look.
    posix_spawn_file_actions_addchdir_np(&actions, root.c_str());
    // A cross build's program runs under the emulator; its words come first.
    std::vector<std::string> words;
#ifdef ONVIF_EMULATOR
    std::istringstream emulator(ONVIF_EMULATOR);
    for (std::string w; emulator >> w;)
        words.push_back(w);
#endif
    words.push_back(ONVIF_SERVICE_BIN);
    std::vector<char*> argv;
    for (auto& w : words)
        argv.push_back(const_cast<char*>(w.c_str()));
    argv.push_back(nullptr);
    pid_t pid;
    int rc = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    return rc == 0 ? pid : -1;
}

pid_t CameraTest::start(const std::string& bodyXml, const std::string& tag, std::vector<std::string> env) const
{
    std::string body = soap(bodyXml);
    writeFile("in-" + tag, body);
    env.insert(env.begin(), {"HOST=192.168.0.100", "CONTENT_LENGTH=" + std::to_string(body.size())});
    return spawnService(env, path("in-" + tag), path("out-" + tag));
}

std::map<std::string, std::string> CameraTest::filesUnder(const std::string& rel, bool deep) const
{
    std::map<std::string, std::string> files;
    DIR* d = opendir(path(rel).c_str());
    while (dirent* e = d ? readdir(d) : nullptr) {
        std::string name = e->d_name, child = rel.empty() ? name : rel + "/" + name;
        struct stat st;
        if (name == "." || name == ".." || lstat(path(child).c_str(), &st) != 0)
            continue;
        if (S_ISREG(st.st_mode))
            files[child] = readFile(child);
        else if (S_ISDIR(st.st_mode) && deep)
            for (auto& file : filesUnder(child, true))
                files.insert(file);
    }
    if (d)
        closedir(d);
    return files;
}

CgiResult CameraTest::run(const std::string& body, const std::string& contentLength,
                          const std::map<std::string, std::string>& extraEnv)
{
    std::string in = root + "/request.body", out = root + "/response.out";
    writeFile("request.body", body);
    // tools/run-tests.sh collects the tests' bodies as the fuzz target's seeds.
    if (const char* seeds = getenv("ONVIF_FUZZ_SEEDS"))
        if (*seeds)
            std::ofstream(std::string(seeds) + "/" + std::to_string(std::hash<std::string>{}(body)), std::ios::binary)
                << body;
    std::vector<std::string> env = {"HOST=192.168.0.100"};
    if (contentLength != "-")
        env.push_back("CONTENT_LENGTH=" + (contentLength.empty() ? std::to_string(body.size()) : contentLength));
    for (auto& kv : extraEnv) {
        for (auto it = env.begin(); it != env.end();)
            it = it->rfind(kv.first + "=", 0) == 0 ? env.erase(it) : it + 1;
        if (kv.second != "-")
            env.push_back(kv.first + "=" + kv.second);
    }
    CgiResult r;
    pid_t pid = spawnService(env, in, out);
    EXPECT_GE(pid, 0);
    if (pid < 0)
        return r;
    EXPECT_TRUE(finished(pid)) << "device_service crashed or failed";
    r.raw = slurp(out);
    keepAnswerForSchemaCheck(r.raw, inOnvifMode());
    size_t blank = r.raw.find("\r\n\r\n");
    r.headers = r.raw.substr(0, blank == std::string::npos ? r.raw.size() : blank);
    r.body = blank == std::string::npos ? "" : r.raw.substr(blank + 4);
    r.status = statusOf(r.raw);
    size_t b = r.body.find("<SOAP-ENV:Body>"), e = r.body.rfind("</SOAP-ENV:Body>");
    if (b != std::string::npos && e != std::string::npos && e >= b + 15)
        r.envelopeBody = r.body.substr(b + 15, e - b - 15);
    return r;
}

std::string CameraTest::soap(const std::string& bodyXml, const std::string& headerXml)
{
    std::string s =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
        "<s:Envelope xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\""
        " xmlns:tds=\"http://www.onvif.org/ver10/device/wsdl\""
        " xmlns:trt=\"http://www.onvif.org/ver10/media/wsdl\""
        " xmlns:tptz=\"http://www.onvif.org/ver20/ptz/wsdl\""
        " xmlns:timg=\"http://www.onvif.org/ver20/imaging/wsdl\""
        " xmlns:tmd=\"http://www.onvif.org/ver10/deviceIO/wsdl\""
        " xmlns:tev=\"http://www.onvif.org/ver10/events/wsdl\""
        " xmlns:wsnt=\"http://docs.oasis-open.org/wsn/b-2\""
        " xmlns:tt=\"http://www.onvif.org/ver10/schema\">";
    if (!headerXml.empty())
        s += "<s:Header>" + headerXml + "</s:Header>";
    return s + "<s:Body>" + bodyXml + "</s:Body></s:Envelope>";
}

static const char MODE_KEY[] = "Conformance.Mode=";

void CameraTest::setOnvifMode() const
{
    std::string conf = readFile("tmp/onvif/onvif.conf"), out;
    std::istringstream lines(conf);
    for (std::string line; std::getline(lines, line);)
        if (line.rfind(MODE_KEY, 0) != 0)
            out += line + "\n";
    writeFile("tmp/onvif/onvif.conf", out + MODE_KEY + "onvif\n");
}

bool CameraTest::inOnvifMode() const
{
    std::string conf = "\n" + readFile("tmp/onvif/onvif.conf");
    std::string line = "\n" + std::string(MODE_KEY) + "onvif";
    size_t at = conf.find(line);
    return at != std::string::npos && (at + line.size() == conf.size() || strchr("\r\n", conf[at + line.size()]));
}

std::string CameraTest::readFile(const std::string& rel) const { return slurp(path(rel)); }

void CameraTest::writeFile(const std::string& rel, const std::string& content) const
{
    std::string p = path(rel);
    shell("mkdir -p \"$(dirname '" + p + "')\"");
    std::ofstream o(p, std::ios::binary);
    o << content;
}

bool CameraTest::exists(const std::string& rel) const { return access(path(rel).c_str(), F_OK) == 0; }

void CameraTest::removeFile(const std::string& rel) const { unlink(path(rel).c_str()); }

void CameraTest::useIntegratedDome()
{
    word(PAN_TILT_WORD) = PAN_TILT_INTEGRATED;
    word(ZOOM_WORD) = LENS_DOME;
    word(IO_LAYOUT_WORD) = IO_LAYOUT_HEAD;
}

std::string CameraTest::buildProgram(const std::string& name)
{
    std::string tool = ONVIF_SERVICE_BIN;
    tool.replace(tool.rfind("device_service"), strlen("device_service"), name);
#ifdef ONVIF_EMULATOR
    return std::string(ONVIF_EMULATOR) + " '" + tool + "'";
#else
    return "'" + tool + "'";
#endif
}
