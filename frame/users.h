// The two account stores: the web server's accounts (read only) and the
// ONVIF users that the user actions maintain.
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

#endif
