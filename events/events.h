// The event service's shared pieces: the subscription table in the
// device-state segment, its event files, time texts and faults.
#ifndef EVENTS_EVENTS_H
#define EVENTS_EVENTS_H

#include <stddef.h>
#include <time.h>

#include "state/timespan.h"

#define VARIANT_VENDOR_TOPICS 32
#define VARIANT_ONE_PULL_POINT 34
#define VARIANT_LENIENT_UNSUBSCRIBE 11

#define SUBSCRIPTION_SLOTS 50
#define SLOT_WORDS 15

// Slot words.
enum {
    SLOT_STATE = 0, SLOT_ADDRESS = 1, SLOT_NUMBER = 5, SLOT_FILTER = 6, SLOT_RESERVED = 7,
    SLOT_TERMINATION = 8, SLOT_TERMINATION_MODE = 14
};
enum { SLOT_FREE = 0, SLOT_PULL = 1, SLOT_PUSH = 2, SLOT_PULL_SYNC = 3, SLOT_PUSH_SYNC = 4 };

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

// The request's filter reduced to its code (10 without a filter): FILTER_OK,
// or the reason it was refused. refuseFilter writes the fault for a refused
// one (a refused read has written its own) and returns 1.
enum FilterResult { FILTER_OK = 0, FILTER_BAD_TOPIC = 1, FILTER_BAD_CONTENT = 2, FILTER_REFUSED = 3 };
int classifyFilter(int variant, int isSubscribe, int* code);
int refuseFilter(int result);

void PullMsg_SendFirstEventState(int filterCode, int messageLimit, const char* timeText);

#endif
