// Access classes of the operations (generated from the ONVIF documents into
// access_classes.inc) and the default policy that maps user levels onto them.
#include "frame/access.h"

#include <string.h>

namespace {
// The document that classifies a service's operations.
enum Document { DOC_CORE, DOC_MEDIA, DOC_PTZ, DOC_IMAGING, DOC_DEVICEIO, DOC_ANALYTICS };

struct AccessRow {
    Document document;
    const char* name;
    AccessClass access;
};

const AccessRow accessRows[] = {
#include "frame/access_classes.inc"
};

Document documentOf(Service s)
{
    switch (s) {
    case SVC_MEDIA: return DOC_MEDIA;
    case SVC_PTZ: return DOC_PTZ;
    case SVC_IMAGING: return DOC_IMAGING;
    case SVC_DEVICEIO: return DOC_DEVICEIO;
    case SVC_ANALYTICS: return DOC_ANALYTICS;
    default: return DOC_CORE;  // device, events and their notification operations
    }
}
}  // namespace

AccessClass accessClassOf(const ActionRow* row)
{
    if (!row)
        return ACC_UNLISTED;
    Document d = documentOf(row->service);
    for (const AccessRow& r : accessRows)
        if (r.document == d && strcmp(r.name, row->name) == 0)
            return r.access;
    return ACC_UNLISTED;
}

const char* accessClassName(AccessClass c)
{
    static const char* const NAMES[] = {"PRE_AUTH",     "READ_SYSTEM",       "READ_SYSTEM_SENSITIVE",
                                        "READ_SYSTEM_SECRET", "WRITE_SYSTEM", "UNRECOVERABLE",
                                        "READ_MEDIA",   "ACTUATE",           "UNLISTED"};
    return NAMES[c];
}

int levelMayUse(UserLevel level, AccessClass c)
{
    switch (level) {
    case LEVEL_ADMINISTRATOR: return 1;
    case LEVEL_OPERATOR:
        return c != ACC_READ_SYSTEM_SECRET && c != ACC_WRITE_SYSTEM && c != ACC_UNRECOVERABLE && c != ACC_UNLISTED;
    case LEVEL_USER: return c == ACC_PRE_AUTH || c == ACC_READ_SYSTEM || c == ACC_READ_MEDIA;
    default: return c == ACC_PRE_AUTH;
    }
}

UserLevel userLevelNamed(const char* name)
{
    if (strcmp(name, "Administrator") == 0)
        return LEVEL_ADMINISTRATOR;
    if (strcmp(name, "Operator") == 0)
        return LEVEL_OPERATOR;
    if (strcmp(name, "User") == 0)
        return LEVEL_USER;
    return LEVEL_ANONYMOUS;
}

const char* securityCapabilities()
{
    return "TLS1.0=\"false\" TLS1.1=\"true\" TLS1.2=\"true\" OnboardKeyGeneration=\"false\" "
           "AccessPolicyConfig=\"false\" DefaultAccessPolicy=\"true\" Dot1X=\"false\" RemoteUserHandling=\"false\" "
           "X.509Token=\"false\" SAMLToken=\"false\" KerberosToken=\"false\" UsernameToken=\"true\" "
           "HttpDigest=\"true\" RELToken=\"false\" MaxUserNameLength=\"32\" MaxPasswordLength=\"32\" "
           "HashingAlgorithms=\"MD5 SHA-256\"";
}
