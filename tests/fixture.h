// End-to-end test fixture: a fresh camera root from factory/, its own
// device-state segment, stub camera programs that record their calls, and a
// runner for the CGI program.
#ifndef TESTS_FIXTURE_H
#define TESTS_FIXTURE_H

#include "state/shm.h"

#include <gtest/gtest.h>
#include <map>
#include <string>
#include <sys/types.h>
#include <vector>

struct CgiResult {
    std::string raw;      // everything the program printed
    std::string headers;  // the CGI header block, without the blank line
    std::string body;     // what follows the blank line
    std::string envelopeBody;  // the text inside SOAP-ENV:Body
    int status = 0;       // from the Status: line, 0 when none
};

class CameraTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // Runs device_service with the body; CONTENT_LENGTH is the body's length
    // unless contentLength is given ("-" leaves the variable out).
    CgiResult run(const std::string& body, const std::string& contentLength = "",
                  const std::map<std::string, std::string>& extraEnv = {});
    // Wraps a body element (and an optional header) into a SOAP 1.2 envelope.
    static std::string soap(const std::string& bodyXml, const std::string& headerXml = "");
    // Runs one action: soap(bodyXml).
    CgiResult call(const std::string& bodyXml) { return run(soap(bodyXml)); }
    // Switches the camera root to the ONVIF mode (Conformance.Mode=onvif in
    // its onvif.conf); the answers it gives then are schema-checked strictly.
    void setOnvifMode() const;
    bool inOnvifMode() const;

    // Starts device_service on the in and out files with env (PATH and
    // ONVIF_ROOT added unless given) inside the root; its pid, or -1.
    pid_t spawnService(std::vector<std::string> env, const std::string& in, const std::string& out) const;
    // Starts device_service on soap(bodyXml), kept in in-TAG, answering into
    // out-TAG, with env beside the CGI variables; its pid, or -1.
    pid_t start(const std::string& bodyXml, const std::string& tag, std::vector<std::string> env = {}) const;
    // The answer a started request left.
    std::string answerOf(const std::string& tag) const { return readFile("out-" + tag); }
    // The regular files under rel (and its subfolders when deep), by path from the root.
    std::map<std::string, std::string> filesUnder(const std::string& rel, bool deep) const;
    // Detaches and removes the test's segment.
    void dropSegment();

    std::string path(const std::string& rel) const { return root + "/" + rel; }
    std::string readFile(const std::string& rel) const;
    void writeFile(const std::string& rel, const std::string& content) const;
    bool exists(const std::string& rel) const;
    void removeFile(const std::string& rel) const;
    // Lines the stub camera programs recorded, in call order.
    std::string cameraCalls() const { return readFile("camera_calls.log"); }
    std::string errorLog() const { return readFile("tmp/onvif_error"); }

    // A segment word, by its name in state/shm_words.h.
    int& word(int n) { return words[n]; }
    // A shell command running one of the build's programs beside
    // device_service (under the emulator in a cross build).
    static std::string buildProgram(const std::string& name);
    // The integrated PTZ dome with its IO layout, as most PTZ tests want it.
    void useIntegratedDome();

    std::string root;
    int* words = nullptr;
    int segmentId = -1;
};

// Reads a whole file; empty when missing.
std::string slurp(const std::string& file);
// Runs a shell command, failing the test when it fails.
void shell(const std::string& cmd);
// The status of a CGI answer from its Status: line, 0 when none.
int statusOf(const std::string& raw);
std::vector<std::string> lines(const std::string& text);
// Waits for a started program; true when it exited with 0.
bool finished(pid_t pid);

#endif
