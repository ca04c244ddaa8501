// The one device command runner every handler uses for the camera's programs.
#include "state/command.h"
#include "state/paths.h"
#include "state/shm.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

char G_Cmd[2048];

const char* cameraUser()
{
    switch (shmWord(WEB_USER_WORD)) {
    case WEB_USER_ADMIN: return "admin";
    case WEB_USER_ROOT: return "root";
    default: return "Admin";
    }
}

int (*G_shellHook)(const char* cmd);

int runShellCommand(const char* cmd)
{
    if (G_shellHook)
        return G_shellHook(cmd);
    fflush(stdout);
    return system(cmd);
}

// assignments are quoted name=value words built below, never request text.
static int runCameraProgramAs(const char* assignments, const char* program, const char* user)
{
    char path[512], quoted[700], cmd[4096];
    int p = snprintf(path, sizeof path, "%s/%s",
                     modelHas(Cap::PathsVariantOwn) ? CAMERA_VANTOR_CGI_DIR : CAMERA_CGI_DIR, program);
    if (p < 0 || (size_t)p >= sizeof path || !shellQuotedPath(path, quoted, sizeof quoted))
        return -1;
    int n = snprintf(cmd, sizeof cmd, "%s REMOTE_USER=%s %s 1> /dev/null 2> /dev/null",
                     assignments, user, quoted);
    if (n < 0 || (size_t)n >= sizeof cmd)
        return -1;  // never run a cut command line
    return runShellCommand(cmd);
}

static int isShellName(const char* name)
{
    if (!name || !((*name >= 'A' && *name <= 'Z') || (*name >= 'a' && *name <= 'z') || *name == '_'))
        return 0;
    for (const char* p = name; *p; ++p)
        if (!((*p >= 'A' && *p <= 'Z') || (*p >= 'a' && *p <= 'z') || (*p >= '0' && *p <= '9') || *p == '_'))
            return 0;
    return 1;
}

// Appends text to a line of size n already holding *used bytes; 0 when cut.
static int appendPiece(char* line, size_t n, size_t* used, const char* text)
{
    size_t len = strlen(text);
    if (*used + len >= n)
        return 0;
    memcpy(line + *used, text, len + 1);
    *used += len;
    return 1;
}

int runCameraProgramWithAs(const char* program, const CommandArg* args, int count, const char* user)
{
    char assignments[3072], quoted[1024];
    size_t used = 0;
    assignments[0] = 0;
    for (int i = 0; i < count; ++i) {
        if (!isShellName(args[i].name) || !shellQuote(args[i].value ? args[i].value : "", quoted, sizeof quoted))
            return -1;
        if ((used && !appendPiece(assignments, sizeof assignments, &used, " ")) ||
            !appendPiece(assignments, sizeof assignments, &used, args[i].name) ||
            !appendPiece(assignments, sizeof assignments, &used, "=") ||
            !appendPiece(assignments, sizeof assignments, &used, quoted))
            return -1;
    }
    if (!isShellName(user))
        return -1;
    return runCameraProgramAs(assignments, program, user);
}

int runCameraProgramWith(const char* program, const CommandArg* args, int count)
{
    return runCameraProgramWithAs(program, args, count, cameraUser());
}

int runSettingsProgram(const char* query)
{
    const CommandArg args[] = {{"QUERY_STRING", query}, {"isOnvif", "1"}};
    return runCameraProgramWith("admin/param.cgi", args, 2);
}

int appendQueryParam(char* query, size_t n, const char* name, const char* value)
{
    size_t used = strlen(query), start = used;
    char piece[4];
    int ok = appendPiece(query, n, &used, "&") && appendPiece(query, n, &used, name) &&
             appendPiece(query, n, &used, "=");
    for (const unsigned char* p = (const unsigned char*)value; ok && *p; ++p) {
        if ((*p >= 'A' && *p <= 'Z') || (*p >= 'a' && *p <= 'z') || (*p >= '0' && *p <= '9') || strchr("-._:/", *p)) {
            piece[0] = (char)*p;
            piece[1] = 0;
        } else {
            snprintf(piece, sizeof piece, "%%%02X", *p);
        }
        ok = appendPiece(query, n, &used, piece);
    }
    if (!ok)
        query[start] = 0;
    return ok;
}
