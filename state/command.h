// Running the camera's control programs through the system shell.
#ifndef STATE_COMMAND_H
#define STATE_COMMAND_H

#define CAMERA_CGI_DIR "/usr/apache/htdocs/cgi-bin"
#define CAMERA_VANTOR_CGI_DIR "/usr/apache/htdocs/vantor-cgi"
#define VARIANT_VANTOR 16
#define WEB_USER_WORD 66

// The global command buffer some handlers build their request in.
extern char G_Cmd[2048];

// The web user the camera's programs run as: word 66 gives 1 "admin",
// 2 "root", anything else "Admin".
const char* cameraUser();

// Runs "<assignments> REMOTE_USER=<user> <dir>/<program> 1> /dev/null 2> /dev/null"
// where dir is cgi-bin, or vantor-cgi for variant 16, under ONVIF_ROOT.
// assignments must already be safe shell words (numbers the caller formatted,
// checked tokens, or text quoted with shellQuote). Returns the shell's status.
int runCameraProgram(const char* assignments, const char* program);

// The same as a named web user (a user the caller has checked).
int runCameraProgramAs(const char* assignments, const char* program, const char* user);

// Runs a complete command line through the shell.
int runShellCommand(const char* cmd);

#endif
