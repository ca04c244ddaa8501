// PullMessages: the long poll of a pull point, and the initial states
// built from the device-state segment.
#include "events/events.h"
#include "state/mode.h"
#include "state/shm_words.h"
#include "state/timespan.h"
#include "state/calendar.h"
#include "frame/frame.h"
#include "frame/request_values.h"
#include "frame/handlers.h"
#include "frame/xmlsearch.h"
#include "state/config.h"
#include "state/paths.h"
#include "state/mode.h"
#include "state/shm.h"

#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

// The camera's event process publishes the tampering state beside motion.
#define MAX_PULL_SECONDS 60
#define ROUND_MS 100

struct MessageBudget {
    int left;
};

// Where the ONVIF mode collects the initial states, one line each, instead
// of the answer (standardInitialStates).
static char* initialSink;
static size_t initialSinkSize;

// One Initialized notification; 0 once the message limit is reached.
static int appendInitialized(MessageBudget* budget, const char* topic, const char* time, const char* sourceName,
                             const char* sourceValue, const char* dataName, const char* state)
{
    if (budget->left <= 0)
        return 0;
    --budget->left;
    if (onvifMode()) {
        char message[2048];
        if (printNotification(message, sizeof message, topic, time, "Initialized", sourceName, sourceValue, dataName,
                              state)) {
            size_t used = strlen(initialSink), length = strlen(message);
            if (used + length + 2 <= initialSinkSize)
                snprintf(initialSink + used, initialSinkSize - used, "%s\n", message);
        }
        return 1;
    }
    appendResponse("<wsnt:NotificationMessage><wsnt:Topic Dialect=\"http://docs.oasis-open.org/wsn/t-1/TopicExpression/Simple\">"
             "%s</wsnt:Topic><wsnt:Message><tt:Message UtcTime=\"%s\" PropertyOperation=\"Initialized\">"
             "<tt:Source><tt:SimpleItem Name=\"%s\" Value=\"%s\"></tt:SimpleItem></tt:Source>"
             "<tt:Data><tt:SimpleItem Name=\"%s\" Value=\"%s\"></tt:SimpleItem></tt:Data>"
                   "</tt:Message></wsnt:Message></wsnt:NotificationMessage>",
                   topic, time, sourceName, sourceValue, dataName, state);
    return 1;
}

// The initial state of one connector (number from 1) or video source.
static int sendState(MessageBudget* b, const char* time, EventKind kind, int number, const char* state)
{
    EventNames names = eventNames(kind);
    char item[32];
    eventSourceValue(names, number, item, sizeof item);
    return appendInitialized(b, names.topic, time, names.sourceName, item, names.dataName, state);
}

// A state word as the data item carries it: the camera's own "1"/"0", or the
// standard's values in the ONVIF mode.
static const char* stateText(EventKind kind, int word)
{
    int on = shmWord(word) == 1;
    if (onvifMode())
        return eventValue(kind, on);
    return on ? "1" : "0";
}

static int sendMotion(MessageBudget* b, const char* time)
{
    return sendState(b, time, EVENT_MOTION, 0, stateText(EVENT_MOTION, MOTION_WORD));
}

static int sendTampering(MessageBudget* b, const char* time)
{
    return sendState(b, time, EVENT_TAMPERING, 0, stateText(EVENT_TAMPERING, TAMPERING_WORD));
}

static int sendInputs(MessageBudget* b, const char* time)
{
    int inputs = modelValue(Cap::EventsInputs);
    for (int i = 0; i < inputs; ++i)
        if (!sendState(b, time, EVENT_INPUT, i + 1, stateText(EVENT_INPUT, INPUT_WORD_1 + i)))
            return 0;
    return 1;
}

static int sendRelays(MessageBudget* b, const char* time)
{
    int relays = modelValue(Cap::EventsRelays);
    for (int i = 0; i < relays; ++i)
        if (!sendState(b, time, EVENT_RELAY, i + 1,
                       onvifMode() ? eventValue(EVENT_RELAY, shmWord(RELAY_WORD_1 + i) == 1)
                                   : shmWord(RELAY_WORD_1 + i) == 1 ? "closed" : "open"))
            return 0;
    return 1;
}

void PullMsg_SendFirstEventState(int filterCode, int messageLimit, const char* timeText)
{
    MessageBudget b = {messageLimit};
    // A filter on tampering alone gets it even from a model that reports none.
    int tampering = filterCode == FILTER_TAMPERING || !modelHas(Cap::EventsNoTampering);
    int room = 1;
    if (filterTakes(filterCode, EVENT_MOTION))
        room = sendMotion(&b, timeText);
    if (room && tampering && filterTakes(filterCode, EVENT_TAMPERING))
        room = sendTampering(&b, timeText);
    if (room && filterTakes(filterCode, EVENT_INPUT))
        room = sendInputs(&b, timeText);
    if (room && filterTakes(filterCode, EVENT_RELAY))
        room = sendRelays(&b, timeText);
    if (room && filterTakes(filterCode, EVENT_ANALYTICS_MOTION))
        sendState(&b, timeText, EVENT_ANALYTICS_MOTION, 0, shmWord(MOTION_WORD) == 1 ? "1" : "0");
}

void standardInitialStates(int filterCode, const char* timeText, char* out, size_t n)
{
    out[0] = 0;
    initialSink = out;
    initialSinkSize = n;
    PullMsg_SendFirstEventState(filterCode, INT_MAX, timeText);
    initialSink = 0;
}

static void startAnswer(const char* current, const char* termination)
{
    setResponse("<tev:PullMessagesResponse><tev:CurrentTime>%s</tev:CurrentTime>"
                "<tev:TerminationTime>%s</tev:TerminationTime>", current, termination);
}

static void endAnswer() { appendResponse("</tev:PullMessagesResponse>"); }

static long endOfFirstLine(FILE* f)
{
    rewind(f);
    int c;
    while ((c = fgetc(f)) != EOF && c != '\n') {}
    return ftell(f);
}

void waitForEventFile()
{
    for (int polls = 0; polls < 10000 && shmWord(EVENT_FILE_BUSY_WORD) == 1; ++polls)
        usleep(1000);
}

// Starts the file over (an empty file put in its place, so it is never
// missing), or keeps what did not fit. When the file cannot be rewritten the
// answer is the store's fault and every line stays for the next pull, rather
// than arriving twice.
void finishEventFile(const char* path, long taken, int rest)
{
    if ((rest ? keepFileTail(path, taken) : replaceFileContent(path, "")) != 0)
        answerStoreFailure(path);
}

// Hands over what the event process left, then starts the file over. Lines
// that do not fit the answer stay in the file for the next pull.
static void drainEventFile(const char* path)
{
    waitForEventFile();
    FILE* f = fopenRoot(path, "r");
    if (!f)
        return;
    long taken = appendMarkupFileToResponse(f, sizeof "</tev:PullMessagesResponse>");
    struct stat st;
    int rest = fstat(fileno(f), &st) == 0 && st.st_size > taken;
    if (rest && taken == 0) {
        // Longer than any answer: kept, it would block the file for ever.
        taken = endOfFirstLine(f);
        logServiceError("PullMessages", "%s", "an event message longer than an answer was dropped");
    }
    fclose(f);
    finishEventFile(path, taken, rest);
}

long eventFileSize(const char* path)
{
    char real[512];
    struct stat st;
    return stat(resolvePath(path, real, sizeof real), &st) == 0 ? (long)st.st_size : 0;
}

static int maxMessageLimit()
{
    return modelValue(Cap::EventsMaxMessages);
}

void PullMessages()
{
    if (onvifMode()) {
        standardPullMessages();
        return;
    }
    char text[33];
    int timeout = MAX_PULL_SECONDS;
    Read timeoutRead = requestText("wsnt:Timeout", text, 33);
    if (timeoutRead == Read::Refused)
        return;
    if (timeoutRead == Read::Value) {
        int h, m, s;
        GetTimeSpanIntoTimeInteger(text, &h, &m, &s);
        long total = (long)h * 3600 + (long)m * 60 + s;
        if (total > MAX_PULL_SECONDS) {
            setResponse("<tev:PullMessagesResponse><tev:MaxTimeout>PT60S</tev:MaxTimeout>"
                        "<tev:MaxMessageLimit>%d</tev:MaxMessageLimit></tev:PullMessagesResponse>", maxMessageLimit());
            return;
        }
        timeout = total < 0 ? 0 : (int)total;
    }
    long limitRead = 2;
    if (requestNumber("wsnt:MessageLimit", INT_MIN, INT_MAX, &limitRead) == Read::Refused)
        return;
    int limit = (int)limitRead;

    struct tm now;
    char current[64];
    currentTime(&now);
    formatTime(current, sizeof current, &now);
    int number = requestedSubscriptionNumber();
    int* slot = findSubscription(number, (1u << SLOT_PULL) | (1u << SLOT_PULL_SYNC));
    if (!slot) {
        startAnswer(current, current);
        endAnswer();
        return;
    }
    char stored[64], renewed[64] = "";
    slotTime(slot + SLOT_TERMINATION, stored, sizeof stored);
    int mode = slot[SLOT_TERMINATION_MODE], filter = slot[SLOT_FILTER];
    // Whichever pull point pulls first after a new one was made gets the initial states.
    if (shmWord(SUBSCRIPTION_CHANGE_WORD) == SUBSCRIPTION_PULL_ADDED) {
        startAnswer(current, stored);
        PullMsg_SendFirstEventState(filter, limit, current);
        setShmWord(SUBSCRIPTION_CHANGE_WORD, SUBSCRIPTIONS_SETTLED);
        endAnswer();
        return;
    }
    char path[64];
    eventFilePath(number, path, sizeof path);
    for (int round = 0; round < timeout * 10; ++round) {
        currentTime(&now);
        formatTime(current, sizeof current, &now);
        int expired = expiration_check(current, round == 0 ? stored : renewed);
        if (round == 0) {
            Carry_Time(renewed, sizeof renewed, timeout + 60, 0, 0, &now);
            storeTime(slot + SLOT_TERMINATION, renewed);
        }
        for (int k = 0; k < SUBSCRIPTION_SLOTS; ++k) {
            int* other = subscriptionSlot(k);
            if (other[SLOT_STATE] == SLOT_PULL_SYNC && other[SLOT_NUMBER] == number) {
                startAnswer(current, renewed);
                PullMsg_SendFirstEventState(filter, limit, current);
                other[SLOT_STATE] = SLOT_PULL;
                endAnswer();
                return;
            }
        }
        if (eventFileSize(path) > 0) {
            startAnswer(current, mode == 1 ? renewed : stored);
            drainEventFile(path);
            endAnswer();
            return;
        }
        if (expired)
            break;
        sleepMs(ROUND_MS);
    }
    currentTime(&now);
    formatTime(current, sizeof current, &now);
    startAnswer(current, (mode == 1 || mode == 2) && renewed[0] ? renewed : stored);
    endAnswer();
}
