// Running the camera's control programs through the system shell.
#ifndef STATE_COMMAND_H
#define STATE_COMMAND_H

#include <stddef.h>

#define CAMERA_CGI_DIR "/usr/apache/htdocs/cgi-bin"
#define CAMERA_VANTOR_CGI_DIR "/usr/apache/htdocs/vantor-cgi"

// The global command buffer some handlers build their request in.
extern char G_Cmd[2048];

// The web user the camera's programs run as: word 66 gives 1 "admin",
// 2 "root", anything else "Admin".
const char* cameraUser();

// One assignment a camera program is started with. The runner quotes the
// value itself, so any text is safe as a value; names are shell names.
struct CommandArg {
    const char* name;
    const char* value;
};

// Runs "name='value' ... REMOTE_USER=<user> '<dir>/<program>'" where dir
// is cgi-bin, or vantor-cgi for variant 16, under ONVIF_ROOT, as the web user
// of word 66 (or the named user, which must be a shell name). Returns the shell's status, or -1 without running
// anything when a name is not a shell name or the line would not fit.
int runCameraProgramWith(const char* program, const CommandArg* args, int count);
int runCameraProgramWithAs(const char* program, const CommandArg* args, int count, const char* user);

// Tells the camera's settings program (admin/param.cgi) a change: the query
// is "action=update&..." as appendQueryParam builds it.
int runSettingsProgram(const char* query);

// Appends "&name=value" to a settings query, every byte of the value outside
// letters, digits and "-._:/" percent-encoded so that no value can add a
// parameter. 0 (query unchanged) when it would not fit.
int appendQueryParam(char* query, size_t n, const char* name, const char* value);

// Runs a complete command line through the shell.
int runShellCommand(const char* cmd);

// When set, every command line goes to this function instead of the shell,
// and its result is the command's status. The fuzz target records and checks
// the lines this way; the program leaves it 0.
extern int (*G_shellHook)(const char* cmd);

#endif
