// Who may use an action in the ONVIF mode: the access class of every
// operation, the user levels and the default policy between them.
#ifndef FRAME_ACCESS_H
#define FRAME_ACCESS_H

#include "frame/dispatch.h"

enum AccessClass {
    ACC_PRE_AUTH, ACC_READ_SYSTEM, ACC_READ_SYSTEM_SENSITIVE, ACC_READ_SYSTEM_SECRET,
    ACC_WRITE_SYSTEM, ACC_UNRECOVERABLE, ACC_READ_MEDIA, ACC_ACTUATE,
    ACC_UNLISTED  // an operation no document classifies: Administrators only
};

enum UserLevel { LEVEL_ANONYMOUS, LEVEL_USER, LEVEL_OPERATOR, LEVEL_ADMINISTRATOR };

AccessClass accessClassOf(const ActionRow* row);
const char* accessClassName(AccessClass c);

// The default access policy: 1 when a user of the level may use the class.
int levelMayUse(UserLevel level, AccessClass c);

// The level stored with an ONVIF user ("Administrator", "Operator", "User");
// anything else grants nothing beyond an anonymous request.
UserLevel userLevelNamed(const char* name);

// The attributes of the device service's tds:Security capabilities: the
// credential forms this camera checks and the hashes its HTTP digest offers
// (TLS as GetCapabilities reports it).
const char* securityCapabilities();

#endif
