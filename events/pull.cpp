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

// One Initialized notification; 0 once the message limit is reached.
static int appendInitialized(MessageBudget* budget, const char* topic, const char* time, const char* sourceName,
                             const char* sourceValue, const char* dataName, const char* state)
{
    if (budget->left <= 0)
        return 0;
    --budget->left;
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

static int sendMotion(MessageBudget* b, const char* time)
{
    return sendState(b, time, EVENT_MOTION, 0, shmWord(MOTION_WORD) == 1 ? "1" : "0");
}

static int sendTampering(MessageBudget* b, const char* time)
{
    return sendState(b, time, EVENT_TAMPERING, 0, shmWord(TAMPERING_WORD) == 1 ? "1" : "0");
}

static int sendInputs(MessageBudget* b, const char* time)
{
    int inputs = modelValue(Cap::EventsInputs);
    for (int i = 0; i < inputs; ++i)
        if (!sendState(b, time, EVENT_INPUT, i + 1, shmWord(INPUT_WORD_1 + i) == 1 ? "1" : "0"))
            return 0;
    return 1;
}

static int sendRelays(MessageBudget* b, const char* time)
{
    int relays = modelValue(Cap::EventsRelays);
    for (int i = 0; i < relays; ++i)
        if (!sendState(b, time, EVENT_RELAY, i + 1, shmWord(RELAY_WORD_1 + i) == 1 ? "closed" : "open"))
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

// The ONVIF mode hands over whole notification messages only (one a line,
// with the Message the schema requires); any other line is dropped and
// logged, never passed on. Returns the bytes of the file taken.
static long appendWholeNotifications(FILE* f, size_t reserve)
{
    static const char OPEN[] = "<wsnt:NotificationMessage>", CLOSE[] = "</wsnt:NotificationMessage>";
    char line[4096];
    long taken = 0;
    while (fgets(line, sizeof line, f)) {
        size_t n = strlen(line), end = strcspn(line, "\r\n");
        int whole = n > 0 && (line[n - 1] == '\n' || feof(f));
        if (!whole) {
            int c;
            while ((c = fgetc(f)) != EOF && c != '\n') {}
        }
        int message = whole && strncmp(line, OPEN, sizeof OPEN - 1) == 0 && end >= sizeof CLOSE - 1 &&
                      strncmp(line + end - (sizeof CLOSE - 1), CLOSE, sizeof CLOSE - 1) == 0 &&
                      strstr(line, "<wsnt:Message>") != 0;
        if (message && strlen(G_Response) + n + reserve >= G_RESPONSE_SIZE)
            break;  // stays for the next pull
        if (message)
            appendMarkup(line);
        else
            logServiceError("PullMessages", "%s", "an event file line that is no whole message was dropped");
        taken = ftell(f);
    }
    return taken;
}

// Hands over what the event process left, then starts the file over: read,
// delete, create, in that order. Lines that do not fit the answer stay in
// the file for the next pull.
static void drainEventFile(const char* path)
{
    for (int polls = 0; polls < 10000 && shmWord(EVENT_FILE_BUSY_WORD) == 1; ++polls)
        usleep(1000);
    FILE* f = fopenRoot(path, "r");
    if (!f)
        return;
    long taken = onvifMode() ? appendWholeNotifications(f, sizeof "</tev:PullMessagesResponse>")
                             : appendMarkupFileToResponse(f, sizeof "</tev:PullMessagesResponse>");
    struct stat st;
    int rest = fstat(fileno(f), &st) == 0 && st.st_size > taken;
    if (rest && taken == 0) {
        // Longer than any answer: kept, it would block the file for ever.
        taken = endOfFirstLine(f);
        logServiceError("PullMessages", "%s", "an event message longer than an answer was dropped");
    }
    fclose(f);
    if (rest) {
        keepFileTail(path, taken);
        return;
    }
    char real[512];
    unlink(resolvePath(path, real, sizeof real));
    FILE* again = fopen(real, "w");
    if (again)
        fclose(again);
}

static long eventFileSize(const char* path)
{
    char real[512];
    struct stat st;
    return stat(resolvePath(path, real, sizeof real), &st) == 0 ? (long)st.st_size : 0;
}

static int maxMessageLimit()
{
    return modelValue(Cap::EventsMaxMessages);
}

// A pull asking to wait longer than the camera does: the standard's fault,
// which carries the limits in its detail.
static void writePullLimitsFault()
{
    setResponse("<SOAP-ENV:Fault><SOAP-ENV:Code><SOAP-ENV:Value>SOAP-ENV:Sender</SOAP-ENV:Value>"
                "<SOAP-ENV:Subcode><SOAP-ENV:Value>ter:InvalidArgVal</SOAP-ENV:Value></SOAP-ENV:Subcode>"
                "</SOAP-ENV:Code><SOAP-ENV:Reason><SOAP-ENV:Text xml:lang=\"en\">The timeout exceeds the"
                " maximum</SOAP-ENV:Text></SOAP-ENV:Reason><SOAP-ENV:Detail><tev:PullMessagesFaultResponse>"
                "<tev:MaxTimeout>PT%dS</tev:MaxTimeout><tev:MaxMessageLimit>%d</tev:MaxMessageLimit>"
                "</tev:PullMessagesFaultResponse></SOAP-ENV:Detail></SOAP-ENV:Fault>",
                MAX_PULL_SECONDS, maxMessageLimit());
    G_httpAck = 400;
}

void PullMessages()
{
    char text[33];
    int timeout = MAX_PULL_SECONDS;
    Read timeoutRead = requestText("wsnt:Timeout", text, 33);
    if (timeoutRead == Read::Refused)
        return;
    if (timeoutRead == Read::Value) {
        int h, m, s;
        GetTimeSpanIntoTimeInteger(text, &h, &m, &s);
        long total = (long)h * 3600 + (long)m * 60 + s;
        if (total > MAX_PULL_SECONDS && onvifMode()) {
            writePullLimitsFault();
            return;
        }
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
