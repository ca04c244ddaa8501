// The two account stores: the web server's accounts (read only) and the
// ONVIF users that the device's user actions maintain.
#ifndef FRAME_USERS_H
#define FRAME_USERS_H

#include <stddef.h>

#define SYSTEM_APPWEB_PASS "/etc/appWeb/appweb.pass"
#define SYSTEM_APPWEB_PRIVACY "/etc/appWeb/appweb.privacy"
#define ONVIF_USER_FILE "/usr/apache/htdocs/onvif/Users.conf"

// Copies the stored password of the account named exactly name (web
// accounts first, so they shadow ONVIF users) and returns 1; 0 when no file
// has the name.
int get_password(const char* name, char* password_out, size_t size);

enum { NOT_FOUND = 0, FOUND = 1, FILE_MISSING = -1 };

// Looks name up in an account file whose password (or rights) is field
// passwordField; copies that field into password when given.
int findAccount(const char* file, const char* name, int passwordField, char* password, size_t size);
// 1 when the store holds the name; a missing file is logged with the caller's name.
int findWebAccount(const char* name, const char* caller);
int findOnvifUser(const char* name, const char* missingLogCaller);

#endif
