// The event service's shared pieces: the subscription table in the
// device-state segment, its event files, time texts and faults.
#ifndef EVENTS_EVENTS_H
#define EVENTS_EVENTS_H

#include <stddef.h>
#include <time.h>

#include "state/timespan.h"

#define SUBSCRIPTION_SLOTS 50
#define SLOT_WORDS 15

// Slot words.
enum {
    SLOT_STATE = 0, SLOT_ADDRESS = 1, SLOT_NUMBER = 5, SLOT_FILTER = 6, SLOT_RESERVED = 7,
    SLOT_TERMINATION = 8, SLOT_TERMINATION_MODE = 14
};
enum { SLOT_FREE = 0, SLOT_PULL = 1, SLOT_PUSH = 2, SLOT_PULL_SYNC = 3, SLOT_PUSH_SYNC = 4 };

// What the table change word tells the event process.
enum { SUBSCRIPTIONS_SETTLED = 0, SUBSCRIPTION_PUSH_ADDED = 1, SUBSCRIPTION_PULL_ADDED = 2 };

// The code a subscription's filter reduces to (slot word SLOT_FILTER); the
// event process reads it to choose what to deliver.
enum FilterCode {
    FILTER_CONTENT_ONLY = 0,      // a message content without a topic: every event
    FILTER_MOTION = 1,
    FILTER_TAMPERING = 2,
    FILTER_VIDEO_SOURCE = 3,      // both video source topics named
    FILTER_VIDEO_SOURCE_ROOT = 4, // the video source root alone
    FILTER_INPUTS = 5,
    FILTER_RELAYS = 6,
    FILTER_DEVICE = 7,            // both device topics named
    FILTER_DEVICE_ROOT = 8,       // the device root alone
    FILTER_ANALYTICS_MOTION = 9,  // motion, under the analytics topic
    FILTER_NONE = 10              // no filter: every event
};

// The events a camera raises, and how a notification names each: its topic
// for this camera's variant, the source item with the prefix of its value
// (the connector number follows for inputs and relays), the data item.
enum EventKind { EVENT_MOTION, EVENT_TAMPERING, EVENT_INPUT, EVENT_RELAY, EVENT_ANALYTICS_MOTION };
struct EventNames {
    const char* topic;
    const char* sourceName;
    const char* sourceValue;
    const char* dataName;
};
EventNames eventNames(EventKind kind);
// The source item's value: the prefix, and the connector number from 1 (0: none).
void eventSourceValue(const EventNames& names, int number, char* out, size_t n);
// Whether a subscription with the filter code gets the event.
int filterTakes(int filterCode, EventKind kind);

// The words of slot k (0-based).
int* subscriptionSlot(int k);

// The subscription number the request names (Idx + 1, from the address the
// client posted to), or 0 when the address names none.
int requestedSubscriptionNumber();

// First slot holding the number in one of the given states (a mask of
// 1 << state), or 0.
int* findSubscription(int number, unsigned stateMask);

// The termination time for an initial or renewed termination text given at
// "now": now + the duration when the text holds "PT" (mode 1), else now +
// 60 seconds (mode 2). Returns the mode.
int terminationFromDuration(const char* text, int hasText, const struct tm* now, char* out, size_t n);
// Stores a printed time into six slot words.
void storeTime(int* words, const char* text);
// Prints six slot words as a time.
void slotTime(const int* words, char* out, size_t n);

int expiration_check(const char* a, const char* b);
int A_larger_than_B(const char* a, const char* b);

// Event file and push record of a subscription number.
void eventFilePath(int number, char* out, size_t n);
void pushRecordPath(int number, char* out, size_t n);

// The event faults: a Sender fault with one subcode, the ultimate receiver
// as node and role, and the detail given.
void writeEventFault(const char* reason, const char* detail);
void writeInvalidFilterFault(const char* reason, const char* description, const char* unknownFilter);
void writeResourceUnknownFault();
// The ONVIF mode's: no room for a subscription; a pull's timeout over the limits.
void writeCreationFailedFault();
void writePullLimitsFault(int maxSeconds, int maxMessages);

// The request's filter reduced to its code (10 without a filter): FILTER_OK,
// or the reason it was refused. refuseFilter writes the fault for a refused
// one (a refused read has written its own) and returns 1.
enum FilterResult { FILTER_OK = 0, FILTER_BAD_TOPIC = 1, FILTER_BAD_CONTENT = 2, FILTER_REFUSED = 3 };
int classifyFilter(int vendorNames, int onePullPoint, int isSubscribe, int* code);
int refuseFilter(int result);

void PullMsg_SendFirstEventState(int filterCode, int messageLimit, const char* timeText);

// The event file of a pull: its size (0 when missing); waiting while the
// event process writes it; after a drain, keeping what was not taken or
// starting it over (read, delete, create, in that order).
long eventFileSize(const char* path);
void waitForEventFile();
void finishEventFile(const char* path, long taken, int rest);

// Frees a slot and removes its files (Unsubscribe, and the end of its term
// in the ONVIF mode).
void endSubscription(int* slot);

// --- The ONVIF mode (events/standard_events.cpp) ---
// How many pull points a client may hold at once.
int maxPullPoints();
// Ends every subscription whose termination time has passed.
void endExpiredSubscriptions();
// The state value of an event as its data item carries it in this mode.
const char* eventValue(EventKind kind, int on);
// Rewrites one notification the event process left into the standard form
// (topic, item names, values, a time in UTC with its zone letter); a
// notification of an unknown kind is copied as it is. 0 when it does not fit.
int standardNotification(const char* fragment, char* out, size_t n);
// Prints the current UTC time with its zone letter.
void zonedNow(char* out, size_t n, struct tm* now);
// Every initial state the filter takes, one notification line each.
void standardInitialStates(int filterCode, const char* timeText, char* out, size_t n);
// A message content filter of the item filter dialect: well formed, and
// whether it takes a notification in the standard form.
int standardContentValid(const char* content);
int contentTakes(const char* content, const char* message);
// The event kinds (1 << EventKind) a topic expression in the standard's
// names takes, alternatives joined by "|"; 0 when one names none.
unsigned standardTopicExpressionKinds(const char* topic);
// The filter kept beside subscription number (the kinds its topic takes,
// then its message content), and whether it takes the notification (no
// filter takes all): exact where a filter code is wider.
void contentFilterPath(int number, char* out, size_t n);
void storeContentFilter(int number);
int subscriptionTakes(int number, const char* message);
// The pull, renew and synchronization answers of the ONVIF mode.
void standardPullMessages();
// The notification template shared by the pull answers and push delivery.
int printNotification(char* out, size_t n, const char* topic, const char* time, const char* operation,
                      const char* sourceName, const char* sourceValue, const char* dataName, const char* value);

#endif
