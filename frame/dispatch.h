// The action table: for every action the handler that serves it, the
// credentials it needs, the envelope it is answered in, and its side effects.
#ifndef FRAME_DISPATCH_H
#define FRAME_DISPATCH_H

// Who may call an action.
enum Credentials {
    CRED_OPEN,              // anyone
    CRED_AUTH,              // a valid UsernameToken
    CRED_AUTH_UNLESS_OPEN_SETUP,      // a token, except where the model leaves media set-up open
    CRED_AUTH_UNLESS_OPEN_INTERFACES  // a token, except where the model leaves the interfaces open
};

// The namespace set and header an answer is wrapped in.
enum EnvelopeKind {
    ENV_FULL,               // the full set of the variant, no header
    ENV_CREATE_PULL_POINT,
    ENV_EVENT_PROPERTIES,
    ENV_SUBSCRIBE,
    ENV_UNSUBSCRIBE,
    ENV_RENEW,
    ENV_PULL_MESSAGES,
    ENV_SERVICE_CAPABILITIES,
    ENV_SYNCHRONIZATION_POINT
};

enum ActionFlags {
    EXACT_NAME = 1,         // whole-name equality instead of containment
    CLOSES_CONNECTION = 2,  // "Connection: close", whatever the outcome
    CHANGES_STORE = 4,      // reads and rewrites settings or list files
    LEGACY_ONLY = 8,        // a row of the camera's own matching only
    ONVIF_ONLY = 16         // a row of the ONVIF mode only
};

// The service an action belongs to; in the ONVIF mode the request's body
// element must stand in its namespace.
enum Service {
    SVC_DEVICE, SVC_MEDIA, SVC_PTZ, SVC_IMAGING, SVC_DEVICEIO, SVC_EVENTS,
    SVC_NOTIFICATION,  // the WS-BaseNotification operations of the event service
    SVC_ANALYTICS
};
const char* serviceNamespace(Service s);

struct ActionRow {
    const char* name;
    Service service;
    void (*handler)();      // 0: named so its envelope is known, but not served (500)
    Credentials credentials;
    EnvelopeKind envelope;
    unsigned flags;
};

// The row that an action name selects, 0 for none: in the legacy mode the
// first whose name it contains (or equals, for EXACT_NAME rows); in the
// ONVIF mode the one of that whole name in the body element's namespace.
const ActionRow* actionRow(const char* action);

// The 1-based row of the table that serves the action, 0 for none.
int dispatchRow(const char* action);

// The whole table, for tests that walk it.
const ActionRow* actionTable(int* rows);

// Calls the handler of the request's action; 500 when none serves it.
void checkXML();

#endif
