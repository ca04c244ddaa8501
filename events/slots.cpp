// The subscription slots the camera's event process shares in the
// device-state segment, their termination times and their files.
#include "events/events.h"
#include "state/shm_words.h"
#include "state/timespan.h"
#include "state/calendar.h"
#include "frame/frame.h"
#include "frame/request_values.h"
#include "frame/xmlsearch.h"
#include "state/paths.h"
#include "state/shm.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

int* subscriptionSlot(int k)
{
    return G_shared_memory + SUBSCRIPTION_TABLE_WORD + SLOT_WORDS * k;
}

int requestedSubscriptionNumber()
{
    const char* idx = G_event_service;
    // No index read from the address reads as 0, the first subscription, as
    // the camera has always taken it; anything but a slot number names none.
    if (strlen(idx) > 2 || strspn(idx, "0123456789") != strlen(idx))
        return 0;
    int n = atoi(idx);
    return n < SUBSCRIPTION_SLOTS ? n + 1 : 0;
}

int* findSubscription(int number, unsigned stateMask)
{
    if (number <= 0)
        return 0;
    for (int k = 0; k < SUBSCRIPTION_SLOTS; ++k) {
        int* slot = subscriptionSlot(k);
        int state = slot[SLOT_STATE];
        if (state >= 0 && state < 8 && (stateMask & (1u << state)) && slot[SLOT_NUMBER] == number)
            return slot;
    }
    return 0;
}

int terminationFromDuration(const char* text, int hasText, const struct tm* now, char* out, size_t n)
{
    int hours = 0, minutes = 0, seconds = 0, mode = 2;
    if (hasText && strstr(text, "PT")) {
        GetTimeSpanIntoTimeInteger(text, &hours, &minutes, &seconds);
        // A negative or absurd part is no duration the calendar can add.
        if (hours < 0 || minutes < 0 || seconds < 0 || hours > 1000000 || minutes > 1000000 || seconds > 1000000)
            hours = minutes = seconds = 0;
        mode = 1;
    } else {
        seconds = 60;
    }
    Carry_Time(out, n, seconds, minutes, hours, now);
    return mode;
}

void storeTime(int* words, const char* text)
{
    int f[6] = {0, 0, 0, 0, 0, 0};
    sscanf(text, "%d-%d-%dT%d:%d:%d", &f[0], &f[1], &f[2], &f[3], &f[4], &f[5]);
    for (int i = 0; i < 6; ++i)
        words[i] = f[i];
}

void slotTime(const int* words, char* out, size_t n)
{
    formatChecked(out, n, "%d-%02d-%02dT%02d:%02d:%02d%s", words[0], words[1], words[2], words[3], words[4], words[5],
                  utcZone());
}

static int compareTimes(const char* a, const char* b)
{
    int x[6] = {0, 0, 0, 0, 0, 0}, y[6] = {0, 0, 0, 0, 0, 0};
    sscanf(a, "%d-%d-%dT%d:%d:%d", &x[0], &x[1], &x[2], &x[3], &x[4], &x[5]);
    sscanf(b, "%d-%d-%dT%d:%d:%d", &y[0], &y[1], &y[2], &y[3], &y[4], &y[5]);
    for (int i = 0; i < 6; ++i)
        if (x[i] != y[i])
            return x[i] > y[i];
    return 1;
}

int expiration_check(const char* a, const char* b) { return compareTimes(a, b); }
int A_larger_than_B(const char* a, const char* b) { return compareTimes(a, b); }

void eventFilePath(int number, char* out, size_t n) { formatChecked(out, n, "/tmp/onvif/eventfile%d", number); }
void pushRecordPath(int number, char* out, size_t n) { formatChecked(out, n, "/tmp/onvif/subscribe%d.event", number); }
