// The one device command runner every handler uses for the camera's programs.
#include "state/command.h"
#include "state/paths.h"
#include "state/shm.h"

#include <stdio.h>
#include <stdlib.h>

char G_Cmd[2048];

const char* cameraUser()
{
    switch (shmWord(WEB_USER_WORD)) {
    case 1: return "admin";
    case 2: return "root";
    default: return "Admin";
    }
}

int runShellCommand(const char* cmd)
{
    fflush(stdout);
    return system(cmd);
}

int runCameraProgram(const char* assignments, const char* program)
{
    return runCameraProgramAs(assignments, program, cameraUser());
}

int runCameraProgramAs(const char* assignments, const char* program, const char* user)
{
    char path[512], quoted[700], cmd[4096];
    snprintf(path, sizeof path, "%s/%s",
             shmWord(VARIANT_CODE) == VARIANT_VANTOR ? CAMERA_VANTOR_CGI_DIR : CAMERA_CGI_DIR, program);
    if (!shellQuotedPath(path, quoted, sizeof quoted))
        return -1;
    int n = snprintf(cmd, sizeof cmd, "%s REMOTE_USER=%s %s 1> /dev/null 2> /dev/null",
                     assignments, user, quoted);
    if (n < 0 || (size_t)n >= sizeof cmd)
        return -1;  // never run a cut command line
    return runShellCommand(cmd);
}
