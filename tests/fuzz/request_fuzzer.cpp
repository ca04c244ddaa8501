// libFuzzer target: one input is one request body served by the real request
// function against a sandbox camera root, with the camera's programs recorded
// instead of run. A finding is a crash, a sanitizer report, a command line
// with unquoted shell syntax, or a settings file left with a key, a line or a
// work copy that no request may leave.
//
// The first byte chooses the device state (authentication, variant code,
// PTZ and IO layout, model code, and with the model's last choice the ONVIF
// mode); the rest is the body.
#include "frame/frame.h"
#include "frame/xmlsearch.h"
#include "ptz/ptzmove.h"
#include "state/command.h"
#include "state/config.h"
#include "state/mode.h"
#include "state/shm.h"

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

std::string sandbox;  // holds root/ and the input file
std::string root;
std::map<std::string, std::string> pristine;  // relative path -> content of the fresh root
int segment[ONVIF_SHM_WORDS];
long sleptMs;

// Keys that a file may hold many times: the list lines.
const char* const LIST_KEYS[] = {"FixedScopes", "ConfigurableScopes", "profile filename"};

[[noreturn]] void finding(const char* what, const std::string& detail)
{
    fprintf(stderr, "FINDING: %s\n%s\n", what, detail.c_str());
    abort();
}

std::string slurp(const fs::path& p)
{
    std::ifstream in(p, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

std::vector<std::string> linesOf(const std::string& text)
{
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        out.push_back(line);
    return out;
}

// Lines the handlers have always run as they are, with no request text in
// them: the settings program's time-source line is deliberately one the shell
// refuses.
const char* const CONSTANT_LINES[] = {"&Time.SyncSource=None\" isOnvif=1 REMOTE_USER="};

// A command line may hold request text only inside single quotes; outside
// them nothing but words, redirections and the quoting of a quote.
int checkCommand(const char* cmd)
{
    for (const char* constant : CONSTANT_LINES)
        if (strncmp(cmd, constant, strlen(constant)) == 0)
            return 0;
    enum { PLAIN, SINGLE, DOUBLE } state = PLAIN;
    for (const char* p = cmd; *p; ++p) {
        char c = *p;
        if (state == SINGLE) {
            if (c == '\'')
                state = PLAIN;
        } else if (state == DOUBLE) {
            if (c == '"')
                state = PLAIN;
            else if (c == '$' || c == '`' || c == '\\')
                finding("expansion inside double quotes", cmd);
        } else if (c == '\'') {
            state = SINGLE;
        } else if (c == '"') {
            state = DOUBLE;
        } else if (c == '\\' && p[1] == '\'') {
            ++p;
        } else if (strchr(";|&`$()<*?[]{}~!#\\\n\r\t", c)) {
            finding("shell syntax outside quotes", cmd);
        }
    }
    if (state != PLAIN)
        finding("unterminated quote", cmd);
    return 0;
}

void noSleep(int ms)
{
    sleptMs += ms;
    // The longest legitimate wait is a pull's minute; a handler that would
    // wait far longer is stuck (for example retrying a file that is gone).
    if (sleptMs > 130 * 1000)
        finding("request would wait for ever", std::to_string(sleptMs) + " ms");
}

void snapshot(const fs::path& dir)
{
    for (auto& e : fs::recursive_directory_iterator(dir))
        if (e.is_regular_file())
            pristine[fs::relative(e.path(), dir).string()] = slurp(e.path());
}

bool isKeyValueText(const std::string& text)
{
    std::vector<std::string> lines = linesOf(text);
    if (lines.empty())
        return false;
    for (auto& l : lines)
        if (!l.empty() && (l.find('=') == std::string::npos || l.find('=') == 0))
            return false;
    return true;
}

bool isListKey(const std::string& key)
{
    for (const char* k : LIST_KEYS)
        if (key == k)
            return true;
    return false;
}

// A settings file after the request: only keys it had, single keys still
// single, and no new line whose value names a key of the file.
void checkKeyValueFile(const std::string& rel, const std::string& before, const std::string& after)
{
    std::map<std::string, int> keys;
    for (auto& l : linesOf(before))
        if (!l.empty())
            ++keys[l.substr(0, l.find('='))];
    std::set<std::string> old;
    for (auto& l : linesOf(before))
        old.insert(l);
    std::map<std::string, int> seen;
    for (auto& l : linesOf(after)) {
        size_t eq = l.find('=');
        if (l.empty() || eq == std::string::npos)
            finding("line without a key", rel + ": " + l);
        std::string key = l.substr(0, eq);
        if (!keys.count(key))
            finding("new key", rel + ": " + l);
        if (++seen[key] > keys[key] && !isListKey(key))
            finding("extra line", rel + ": " + l);
        if (old.count(l))
            continue;
        for (auto& k : keys)
            if (l.find(k.first + "=", eq + 1) != std::string::npos)
                finding("value names another key", rel + ": " + l);
    }
}

// name:level:password, one account a line.
void checkAccountFile(const std::string& rel, const std::string& after)
{
    for (auto& l : linesOf(after)) {
        size_t colons = 0;
        for (char c : l)
            colons += c == ':';
        if (colons != 2)
            finding("account line", rel + ": " + l);
    }
}

// The writers' work copies are named after their file with six characters added.
bool isWorkCopyOf(const std::string& rel)
{
    size_t dot = rel.rfind('.');
    if (dot == std::string::npos || rel.size() - dot != 7)
        return false;
    std::string base = rel.substr(0, dot);
    return pristine.count(base) || fs::exists(fs::path(root) / base);
}

// Checks every file of the root against the fresh one, then puts the fresh
// root back so that every input starts from the same camera.
void checkAndRestore()
{
    std::vector<fs::path> added;
    for (auto& e : fs::recursive_directory_iterator(root)) {
        if (!e.is_regular_file())
            continue;
        std::string rel = fs::relative(e.path(), root).string();
        auto it = pristine.find(rel);
        if (it == pristine.end()) {
            if (isWorkCopyOf(rel))
                finding("work copy left behind", rel);
            added.push_back(e.path());
            continue;
        }
        std::string now = slurp(e.path());
        if (now == it->second)
            continue;
        if (rel.find("Users.conf") != std::string::npos)
            checkAccountFile(rel, now);
        else if (isKeyValueText(it->second))
            checkKeyValueFile(rel, it->second, now);
        std::ofstream(e.path(), std::ios::binary | std::ios::trunc) << it->second;
    }
    for (auto& p : added)
        fs::remove(p);
    for (auto& kv : pristine)
        if (!fs::exists(fs::path(root) / kv.first))
            std::ofstream(fs::path(root) / kv.first, std::ios::binary) << kv.second;
}

void chooseDeviceState(uint8_t b)
{
    static const int VARIANTS[] = {0, VARIANT_GENERIC, VARIANT_OPEN_SETUP, VARIANT_VANTOR, VARIANT_V20,
                                   VARIANT_COUNTRY_SCOPE, VARIANT_VENDOR_TOPICS, VARIANT_ONE_PULL_POINT};
    memset(segment, 0, sizeof segment);
    segment[SERVICE_READY] = 1;
    segment[AUTH_ON_WORD] = b & 1;
    segment[VARIANT_CODE] = VARIANTS[(b >> 1) & 7];
    switch ((b >> 4) & 3) {
    case 1:
        segment[PAN_TILT_WORD] = PAN_TILT_RS485;
        segment[ZOOM_WORD] = LENS_SPLIT_SIXTH_STEP;
        segment[IO_LAYOUT_WORD] = IO_LAYOUT_HEAD;
        break;
    case 2:
        segment[PAN_TILT_WORD] = PAN_TILT_INTEGRATED;
        segment[ZOOM_WORD] = LENS_DOME;
        segment[IO_LAYOUT_WORD] = IO_LAYOUT_HEAD_TWO_RELAYS;
        segment[ZOOM_MODULE_WORD] = ZOOM_MODULE_2489;
        break;
    case 3: segment[IO_LAYOUT_WORD] = IO_LAYOUT_HEAD_TWO_RELAYS_B; break;
    default: break;
    }
    static const int MODELS[] = {0, MODEL_A5S_SDK310, MODEL_WITHOUT_TAMPERING, MODEL_A5S_SDK310};
    segment[MODEL_CODE_WORD] = MODELS[(b >> 6) & 3];
    segment[PAN_TILT_TIMER_WORD] = segment[ZOOM_TIMER_WORD] = TIMER_STOPPED;
}

void removeSandbox()
{
    if (!sandbox.empty())
        fs::remove_all(sandbox);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    // Under TMPDIR, which tools/fuzz.sh points into build-fuzz/: a finding
    // aborts before the sandbox can be removed, and the script removes it.
    const char* tmp = getenv("TMPDIR");
    std::string tmpl = std::string(tmp && *tmp ? tmp : "/tmp") + "/onvif-fuzz-XXXXXX";
    if (!mkdtemp(&tmpl[0]))
        abort();
    sandbox = tmpl;
    root = sandbox + "/root";
    fs::copy(ONVIF_SOURCE_DIR "/factory", root, fs::copy_options::recursive);
    snapshot(root);
    atexit(removeSandbox);
    setenv("ONVIF_ROOT", root.c_str(), 1);
    setenv("HOST", "192.168.0.100", 1);
    G_shared_memory = segment;
    G_shellHook = checkCommand;
    G_sleepHook = noSleep;
    if (!freopen("/dev/null", "w", stdout))
        abort();
    return 0;
}

// The mode key in the root's onvif.conf, which checkAndRestore puts back.
void chooseMode(bool onvif)
{
    fs::path conf = fs::path(root) / "tmp/onvif/onvif.conf";
    std::string text = slurp(conf), from = "Conformance.Mode=legacy", to = "Conformance.Mode=onvif";
    size_t at = text.find(from);
    if (onvif && at != std::string::npos)
        std::ofstream(conf, std::ios::binary | std::ios::trunc) << text.replace(at, from.size(), to);
    forgetMode();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 1 || size - 1 > MAX_CONTENT_LENGTH)
        return -1;
    chooseDeviceState(data[0]);
    chooseMode((data[0] >> 6) == 3);
    std::string input = sandbox + "/input";
    {
        std::ofstream out(input, std::ios::binary | std::ios::trunc);
        out.write((const char*)data + 1, (std::streamsize)(size - 1));
    }
    if (!freopen(input.c_str(), "r", stdin))
        abort();
    setenv("CONTENT_LENGTH", std::to_string(size - 1).c_str(), 1);
    clearElementTables();
    clearResponse();
    G_connection_close = 0;
    sleptMs = 0;
    serveRequest();
    checkAndRestore();
    return 0;
}
