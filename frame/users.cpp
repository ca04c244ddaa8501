// The two account stores the request's credentials are checked against: the
// web server's accounts and the ONVIF user file.
#include "frame/users.h"
#include "state/config.h"
#include "state/paths.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

// Looks name up in an account file whose password is field passwordField
// (1 in appweb.pass, 2 in Users.conf); fields receives the line's fields.
int findAccount(const char* file, const char* name, int passwordField, char* password, size_t size)
{
    FILE* f = fopenRoot(file, "r");
    if (!f)
        return FILE_MISSING;
    char line[256];
    int result = NOT_FOUND;
    while (fgets(line, sizeof line, f)) {
        char* fields[3] = {0, 0, 0};
        int n = splitFields(line, ':', fields, passwordField + 1);
        if (strcmp(fields[0], name) == 0) {
            if (password && size > 0)
                snprintf(password, size, "%s", n > passwordField ? fields[passwordField] : "");
            result = FOUND;
            break;
        }
    }
    fclose(f);
    return result;
}

int findWebAccount(const char* name, const char* caller)
{
    int r = findAccount(SYSTEM_APPWEB_PASS, name, 1, 0, 0);
    if (r == FILE_MISSING)
        log_message_to_onvifErrorFile(1, "onvifService::%s:SYSTEM_APPWEB_PASS missing", caller);
    return r == FOUND;
}

int findOnvifUser(const char* name, const char* missingLogCaller)
{
    int r = findAccount(ONVIF_USER_FILE, name, 2, 0, 0);
    if (r == FILE_MISSING)
        log_message_to_onvifErrorFile(1, "onvifService::%s:ONVIF_USER_FILE missing", missingLogCaller);
    return r == FOUND;
}

int get_password(const char* name, char* password_out, size_t size)
{
    int r = findAccount(SYSTEM_APPWEB_PASS, name, 1, password_out, size);
    if (r == FOUND)
        return 1;
    if (r == FILE_MISSING)
        log_message_to_onvifErrorFile(1, "onvifService::get_password:SYSTEM_APPWEB_PASS missing");
    r = findAccount(ONVIF_USER_FILE, name, 2, password_out, size);
    if (r == FILE_MISSING)
        log_message_to_onvifErrorFile(1, "onvifService::get_password:ONVIF_USER_FILE missing");
    return r == FOUND;
}
