// Recorded scenarios: tests/scenarios/*.scenario hold requests and, after each,
// everything it did (answer, files, segment words, camera calls). A change of
// behaviour shows as a changed record; ONVIF_SCENARIO_UPDATE=1 rewrites them.
#include "tests/fixture.h"
#include "events/events.h"
#include "state/model.h"

#include <dirent.h>
#include <stdio.h>
#include <algorithm>
#include <fstream>
#include <memory>
#include <regex>
#include <set>
#include <sstream>

namespace {

const std::string SCENARIOS = std::string(ONVIF_SOURCE_DIR) + "/tests/scenarios/";

// A file's "define NAME text" lines, for ${NAME} or ${NAME:a|b} ($1, $2 in the text).
using Defines = std::map<std::string, std::string>;

struct Case {
    std::string file, name;
    std::vector<std::string> lines;     // directives and comments, without records
    std::vector<std::string> expected;  // the records
    std::shared_ptr<Defines> defines;
};

void PrintTo(const Case& c, std::ostream* os) { *os << c.file << " " << c.name; }

std::vector<Case> loadCases()
{
    std::vector<Case> cases;
    std::vector<std::string> files;
    if (DIR* d = opendir(SCENARIOS.c_str())) {
        while (dirent* e = readdir(d)) {
            std::string n = e->d_name;
            if (n.size() > 9 && n.compare(n.size() - 9, 9, ".scenario") == 0)
                files.push_back(n);
        }
        closedir(d);
    }
    std::sort(files.begin(), files.end());
    for (const std::string& f : files) {
        std::ifstream in(SCENARIOS + f);
        auto defines = std::make_shared<Defines>();
        for (std::string line; std::getline(in, line);) {
            if (line.rfind("define ", 0) == 0) {
                size_t sp = line.find(' ', 7);
                (*defines)[line.substr(7, sp - 7)] = sp == std::string::npos ? "" : line.substr(sp + 1);
            }
            if (line.rfind("case ", 0) == 0)
                cases.push_back({f, line.substr(5), {}, {}, defines});
            else if (!cases.empty() && cases.back().file == f)
                (line.rfind(">", 0) == 0 ? cases.back().expected : cases.back().lines).push_back(line);
        }
    }
    return cases;
}

std::string expand(std::string s, const Defines& defines)
{
    for (int depth = 0; depth < 200; ++depth) {
        size_t at = s.rfind("${");
        if (at == std::string::npos)
            break;
        size_t end = at + 2;
        for (int open = 1; end < s.size(); ++end)  // past the braces of a {{c*N}} inside
            if ((open += s[end] == '{' ? 1 : s[end] == '}' ? -1 : 0) == 0)
                break;
        if (end >= s.size())
            break;
        std::string call = s.substr(at + 2, end - at - 2), name = call.substr(0, call.find(':'));
        auto d = defines.find(name);
        std::string text = d == defines.end() ? "" : d->second;
        EXPECT_NE(d, defines.end()) << "undefined ${" << name << "}";
        std::vector<std::string> args;
        for (size_t from = call.find(':'); from != std::string::npos;) {
            size_t bar = call.find('|', from + 1);
            args.push_back(call.substr(from + 1, bar == std::string::npos ? std::string::npos : bar - from - 1));
            from = bar;
        }
        for (size_t i = args.size(); i-- > 0;)
            for (size_t p = 0; (p = text.find("$" + std::to_string(i + 1), p)) != std::string::npos;)
                text.replace(p, 2, args[i]), p += args[i].size();
        s.replace(at, end - at + 1, text);
    }
    return s;
}

// {{text*N}}: N times the text, each %d in it the repetition's number from 0
// and each %i from 1; inner repetitions first.
std::string repeatTexts(std::string s)
{
    for (size_t at; (at = s.rfind("{{")) != std::string::npos;) {
        size_t end = s.find("}}", at), star = end == std::string::npos ? end : s.rfind('*', end);
        if (star == std::string::npos || star < at + 2)
            break;
        std::string text = s.substr(at + 2, star - at - 2), out;
        for (unsigned long k = 0, n = std::stoul(s.substr(star + 1, end - star - 1)); k < n; ++k) {
            std::string one = text;
            for (size_t p; (p = one.find("%d")) != std::string::npos;)
                one.replace(p, 2, std::to_string(k));
            for (size_t p; (p = one.find("%i")) != std::string::npos;)
                one.replace(p, 2, std::to_string(k + 1));
            out += one;
        }
        s.replace(at, end + 2 - at, out);
    }
    return s;
}

// \n \r \t \\ \xHH, after the repetitions.
std::string unescape(const std::string& text)
{
    std::string s = repeatTexts(text), out;
    for (size_t i = 0; i < s.size(); ++i) {
        if (s[i] != '\\' || i + 1 == s.size()) {
            out += s[i];
            continue;
        }
        char c = s[++i];
        if (c == 'x' && i + 2 < s.size()) {
            out += (char)std::stoi(s.substr(i + 1, 2), nullptr, 16);
            i += 2;
        } else
            out += c == 'n' ? '\n' : c == 'r' ? '\r' : c == 't' ? '\t' : c;
    }
    return out;
}

std::string printable(const std::string& s)
{
    static const char HEX[] = "0123456789abcdef";
    std::string out;
    for (unsigned char c : s)
        if (c == '\\')
            out += "\\\\";
        else if (c < 0x20 || c == 0x7f)
            out += std::string("\\x") + HEX[c >> 4] + HEX[c & 15];
        else
            out += (char)c;
    return out;
}

struct WordName { const char* name; int number; };
const WordName WORD_NAMES[] = {
#define SHM_WORD_NAME(name, number, writer, meaning) {#name, number},
    SHM_WORD_LIST(SHM_WORD_NAME)
#undef SHM_WORD_NAME
};

// NAME, NAME+k or a number.
int wordNumber(const std::string& s)
{
    size_t plus = s.find('+');
    std::string base = s.substr(0, plus);
    int offset = plus == std::string::npos ? 0 : std::stoi(s.substr(plus + 1));
    for (const WordName& w : WORD_NAMES)
        if (base == w.name)
            return w.number + offset;
    return std::stoi(base) + offset;
}

struct CodeName { const char* name; int code; };
const CodeName CODE_NAMES[] = {
#define MODEL_CODE_NAME(name, word, code) {#name, code},
    MODEL_CODE_LIST(MODEL_CODE_NAME)
#undef MODEL_CODE_NAME
};

// A code of state/model.h by its name, or a number.
int wordValue(const std::string& s)
{
    for (const CodeName& c : CODE_NAMES)
        if (s == c.name)
            return c.code;
    return std::stoi(s);
}

std::string wordName(int n)
{
    for (const WordName& w : WORD_NAMES)
        if (w.number == n)
            return w.name;
    return std::to_string(n);
}

// A subscription's termination time follows the clock: left out.
bool isTimeWord(int n)
{
    int inSlot = (n - SUBSCRIPTION_TABLE_WORD) % SLOT_WORDS;
    return n >= SUBSCRIPTION_TABLE_WORD && n < SUBSCRIPTION_TABLE_WORD + SUBSCRIPTION_SLOTS * SLOT_WORDS &&
           inSlot >= SLOT_TERMINATION && inSlot < SLOT_TERMINATION + 6;
}


// Lines gone and lines added, in file order; the camera's files are key=value
// lines, so a line set difference says what changed.
void recordFileChanges(const std::map<std::string, std::string>& before,
                       const std::map<std::string, std::string>& after, std::vector<std::string>& out)
{
    for (auto& [name, text] : before)
        if (!after.count(name))
            out.push_back("gone " + name);
    for (auto& [name, text] : after) {
        auto old = before.find(name);
        if (old != before.end() && old->second == text)
            continue;
        std::vector<std::string> a = old == before.end() ? std::vector<std::string>{} : lines(old->second);
        std::vector<std::string> b = lines(text);
        std::multiset<std::string> gone(a.begin(), a.end()), added(b.begin(), b.end());
        for (auto& l : b) {
            auto it = gone.find(l);
            if (it != gone.end())
                gone.erase(it), added.erase(added.find(l));
        }
        if (old == before.end())
            out.push_back("new " + name);
        for (auto& l : a)
            if (gone.count(l))
                gone.erase(gone.find(l)), out.push_back("- " + name + ": " + printable(l));
        for (auto& l : b)
            if (added.count(l))
                added.erase(added.find(l)), out.push_back("+ " + name + ": " + printable(l));
    }
}

// FNV-1a: the same on every build, unlike std::hash.
std::string fingerprint(const std::string& s)
{
    uint32_t h = 2166136261u;
    for (unsigned char c : s)
        h = (h ^ c) * 16777619u;
    char out[9];
    snprintf(out, sizeof out, "%08x", h);
    return out;
}

// The envelope's long start tag is shown by its fingerprint, and a body with no
// SOAP header as the answer inside it.
std::string shownBody(const std::string& body)
{
    const std::string start = "<?xml version=\"1.0\" encoding=\"UTF-8\"?><SOAP-ENV:Envelope ";
    const std::string open = "<SOAP-ENV:Body>", close = "</SOAP-ENV:Body></SOAP-ENV:Envelope>";
    size_t tagEnd = body.rfind(start, 0) == 0 ? body.find('>', start.size()) : std::string::npos;
    if (tagEnd == std::string::npos)
        return "body " + printable(body);
    std::string id = "ns=" + fingerprint(body.substr(0, tagEnd + 1)) + " ", rest = body.substr(tagEnd + 1);
    while (!rest.empty() && isspace((unsigned char)rest.back()))
        rest.pop_back();
    if (rest.rfind(open, 0) == 0 && rest.size() >= open.size() + close.size() &&
        rest.compare(rest.size() - close.size(), close.size(), close) == 0)
        return "answer " + id + printable(rest.substr(open.size(), rest.size() - open.size() - close.size()));
    return "body " + id + printable(rest);
}

// What a python3 script prints: credentials are made apart from the camera's own hashes.
std::istringstream python(const std::string& script, const std::string& args)
{
    std::string out;
    FILE* p = popen(("python3 -c '" + script + "' " + args).c_str(), "r");
    for (char buffer[512]; fgets(buffer, sizeof buffer, p);)
        out += buffer;
    pclose(p);
    return std::istringstream(out);
}

class Scenario : public CameraTest, public ::testing::WithParamInterface<Case> {
protected:
    std::vector<std::string> records;  // every record, in order, for the case
    std::map<std::string, std::string> env;
    std::vector<std::pair<std::regex, std::string>> masks;  // and what replaces a match
    std::vector<std::regex> hides;
    bool showClock = false;  // after unmask: the termination words too
    std::string lastAnswer;  // the envelope body of the last request, for capture
    std::string nonce;  // of the last digest challenge
    int tokens = 0;     // made so far: each nonce is new

    // The root's files but the fixture's own and the call log, which is recorded as calls.
    std::map<std::string, std::string> cameraFiles() const
    {
        std::map<std::string, std::string> files = filesUnder("", true);
        for (const char* own : {"request.body", "response.out", "camera_calls.log"})
            files.erase(own);
        return files;
    }

    void record(std::vector<std::string> shown)
    {
        for (std::string& l : shown) {
            for (size_t at; (at = l.find(root)) != std::string::npos;)
                l.replace(at, root.size(), "$ROOT");
            for (auto& m : masks)
                l = std::regex_replace(l, m.first, m.second);
            if (std::none_of(hides.begin(), hides.end(), [&](const std::regex& h) { return std::regex_search(l, h); }))
                records.push_back("> " + l);
        }
    }

    std::vector<std::string> send(const std::string& body, const std::string& length)
    {
        std::map<std::string, std::string> filesBefore = cameraFiles();
        std::vector<int> wordsBefore(words, words + ONVIF_SHM_WORDS);
        size_t callsBefore = cameraCalls().size();

        CgiResult r = run(body, length, env);
        lastAnswer = r.envelopeBody;
        if (size_t at = r.headers.find("nonce=\"") + 1)
            nonce = r.headers.substr(at + 6, r.headers.find('"', at + 6) - at - 6);

        std::vector<std::string> out;
        // The status line as printed, the usual content type left out.
        for (std::string h : lines(r.headers)) {
            if (!h.empty() && h.back() == '\r')
                h.pop_back();
            if (h.rfind("Status: ", 0) == 0)
                out.push_back("status " + printable(h.substr(8)));
            else if (h != "Content-type: application/soap+xml; charset=utf-8")
                out.push_back("header " + printable(h));
        }
        out.push_back(shownBody(r.body));
        for (const std::string& c : lines(cameraCalls().substr(callsBefore)))
            out.push_back("call " + printable(c));
        for (int i = 0; i < ONVIF_SHM_WORDS; ++i)
            if (words[i] != wordsBefore[i] && (showClock || !isTimeWord(i)))
                out.push_back("word " + wordName(i) + " " + std::to_string(wordsBefore[i]) + " -> " +
                              std::to_string(words[i]));
        recordFileChanges(filesBefore, cameraFiles(), out);
        return out;
    }

    // Runs the case's directives; the records follow each request.
    void play(const Case& c, std::vector<std::string>& rewritten)
    {
        Defines defines = *c.defines;  // with the names capture and token add
        // Times and the answers' own identifiers differ from run to run.
        masks.emplace_back(std::regex("\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d(\\.\\d+)?Z?"), "#");
        masks.emplace_back(std::regex("(<tt:(UTC|Local)DateTime>).*?(</tt:(UTC|Local)DateTime>)"), "$1#$3");
        std::string header, length, fileName, fileText;
        bool inFile = false;
        auto flushFile = [&]() {
            if (inFile)
                writeFile(fileName, fileText);
            inFile = false;
        };
        rewritten.push_back("case " + c.name);
        for (const std::string& line : c.lines) {
            rewritten.push_back(line);
            if (line.rfind("|", 0) == 0 && inFile) {
                fileText += unescape(expand(line.substr(1), defines)) + "\n";
                continue;
            }
            flushFile();
            size_t sp = line.find(' ');
            std::string verb = line.substr(0, sp);
            if (verb.empty() || verb[0] == '#' || verb == "define")
                continue;
            std::string arg = sp == std::string::npos ? "" : expand(line.substr(sp + 1), defines);
            std::vector<std::string> out;
            if (verb == "mode" && arg == "onvif")
                setOnvifMode();
            else if (verb == "dome")
                useIntegratedDome();
            else if (verb == "word")
                word(wordNumber(arg.substr(0, arg.find(' ')))) = wordValue(arg.substr(arg.find(' ') + 1));
            else if (verb == "file")
                inFile = true, fileName = arg, fileText.clear();
            else if (verb == "remove")
                removeFile(arg);
            else if (verb == "env")
                env[arg.substr(0, arg.find('='))] = unescape(arg.substr(arg.find('=') + 1));
            else if (verb == "capture") {  // capture NAME REGEX: NAME is the last answer's first group
                std::smatch m;
                std::string name = arg.substr(0, arg.find(' '));
                EXPECT_TRUE(std::regex_search(lastAnswer, m, std::regex(arg.substr(arg.find(' ') + 1)))) << line;
                defines[name] = m.size() > 1 ? m[1].str() : "";
            } else if (verb == "mask")
                masks.emplace_back(std::regex(arg), "#");
            else if (verb == "unmask")  // drops the masks so far, the times' one included
                masks.clear(), showClock = true;
            else if (verb == "hide")  // record lines that come and go with the clock
                hides.emplace_back(arg);
            else if (verb == "length")
                length = arg;
            else if (verb == "header")
                header = unescape(arg);
            else if (verb == "shell" || verb == "tool") {  // a command, or one of the build's programs, in the root
                std::string program = arg.substr(0, arg.find(' '));
                shell("cd '" + root + "' && ONVIF_ROOT='" + root + "' " +
                      (verb == "shell" ? arg : buildProgram(program) + arg.substr(program.size())));
            }
            else if (verb == "token") {  // USER PASSWORD [SECONDS [TAIL]]: ${created}, ${nonce}, ${digest}; sends ${token:USER}
                std::string user, password, shift = "0", tail = "Z";
                std::istringstream(arg) >> user >> password >> shift >> tail;
                python("import base64,hashlib,sys,time; n,s,t,p=sys.argv[1:]; c=time.strftime(\"%Y-%m-%dT%H:%M:%S\", "
                       "time.gmtime(time.time()+int(s)))+t; print(c, base64.b64encode(n.encode()).decode(), "
                       "base64.b64encode(hashlib.sha1((n+c+p).encode()).digest()).decode())",
                       "scenario" + std::to_string(10000000 + ++tokens) + " " + shift + " '" + tail + "' '" + password + "'") >>
                    defines["created"] >> defines["nonce"] >> defines["digest"];
                header = expand("${token:" + user + "}", defines);
            } else if (verb == "digest") {  // USER PASSWORD ALGORITHM NC [forged|stale]: answers the last challenge
                std::string user, password, algorithm, nc, form, used, response;
                std::istringstream(arg) >> user >> password >> algorithm >> nc >> form;
                python("import hashlib,sys,time; a,u,p,n,nc,k,f=sys.argv[1:]; s=\"%08x0badcafe\" % (int(time.time())-120); "
                       "n={\"stale\": s+hashlib.sha256((k+\":\"+s).encode()).hexdigest()[:32], \"forged\": \"00000001\"+n[8:]}.get(f,n); "
                       "h=lambda s: hashlib.new(\"sha256\" if a==\"SHA-256\" else \"md5\", s.encode()).hexdigest(); "
                       "print(n, h(\":\".join([h(u+\":ONVIF camera:\"+p),n,nc,\"c0ffee\",\"auth\",h(\"POST:/onvif/device_service\")])))",
                       "'" + algorithm + "' '" + user + "' '" + password + "' '" + nonce + "' '" + nc + "' '" +
                           readFile("etc/onvif_digest.secret") + "' '" + form + "'") >> used >> response;
                env["HTTP_AUTHORIZATION"] = "Digest username=\"" + user + "\", realm=\"ONVIF camera\", nonce=\"" + used +
                    "\", uri=\"/onvif/device_service\", algorithm=" + algorithm + ", response=\"" + response +
                    "\", qop=auth, nc=" + nc + ", cnonce=\"c0ffee\"";
            } else if (verb == "send" || verb == "raw") {
                out = send(verb == "send" ? soap(unescape(arg), header) : unescape(arg), length);
                header.clear(), length.clear();
            } else
                ADD_FAILURE() << "unknown directive: " << line;
            size_t from = records.size();
            record(out);
            rewritten.insert(rewritten.end(), records.begin() + from, records.end());
        }
        flushFile();
    }
};

// Replaces the case's block in its file with the played one.
void rewriteCase(const Case& c, const std::vector<std::string>& block)
{
    std::ifstream in(SCENARIOS + c.file);
    std::vector<std::string> out;
    bool inCase = false;
    for (std::string line; std::getline(in, line);) {
        if (line.rfind("case ", 0) == 0) {
            inCase = line.substr(5) == c.name;
            if (inCase)
                out.insert(out.end(), block.begin(), block.end());
        }
        if (!inCase)
            out.push_back(line);
    }
    in.close();
    std::ofstream o(SCENARIOS + c.file);
    for (auto& l : out)
        o << l << "\n";
}

TEST_P(Scenario, Plays)
{
    const Case& c = GetParam();
    std::vector<std::string> block;
    play(c, block);
    if (getenv("ONVIF_SCENARIO_UPDATE")) {
        rewriteCase(c, block);
        return;
    }
    const std::vector<std::string>& expected = c.expected;
    for (size_t i = 0; i < std::max(expected.size(), records.size()); ++i) {
        std::string want = i < expected.size() ? expected[i] : "(nothing)";
        std::string got = i < records.size() ? records[i] : "(nothing)";
        if (want != got) {
            size_t at = std::mismatch(want.begin(), want.end(), got.begin(), got.end()).first - want.begin();
            size_t from = at > 60 ? at - 60 : 0;
            ADD_FAILURE() << c.file << " " << c.name << ", record " << i + 1 << " differs at column " << at
                          << "\n  want: ..." << want.substr(from, 200) << "\n  got:  ..." << got.substr(from, 200)
                          << "\n(ONVIF_SCENARIO_UPDATE=1 rewrites the records)";
            return;
        }
    }
}

std::string caseName(const ::testing::TestParamInfo<Case>& info)
{
    std::string n = info.param.file.substr(0, info.param.file.size() - 9) + "_" + info.param.name;
    for (char& ch : n)
        if (!isalnum((unsigned char)ch))
            ch = '_';
    return n;
}

INSTANTIATE_TEST_SUITE_P(Recorded, Scenario, ::testing::ValuesIn(loadCases()), caseName);

}  // namespace
