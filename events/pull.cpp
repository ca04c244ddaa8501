// PullMessages: the long poll of a pull point, and the initial states
// built from the device-state segment.
#include "events/events.h"
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

static int vendorTopicNames() { return shmWord(VARIANT_CODE) == 32; }

static int sendMotion(MessageBudget* b, const char* time)
{
    const char* state = shmWord(MOTION_WORD) == 1 ? "1" : "0";
    return appendInitialized(b, vendorTopicNames() ? "tns1:VideoAnalytics/tnsaxis:MotionDetection" : "tns1:VideoSource/MotionAlarm",
                             time, shmWord(VARIANT_CODE) == 24 ? "window" : "VideoSourceToken", "VideoSource1", "motion",
                             state);
}

static int sendTampering(MessageBudget* b, const char* time)
{
    return appendInitialized(b, vendorTopicNames() ? "tns1:VideoAnalytics/TamperingDetection" : "tns1:VideoSource/TamperingDetection",
                             time, "VideoSourceToken", "VideoSource1", "State", shmWord(TAMPERING_WORD) == 1 ? "1" : "0");
}

static int sendInputs(MessageBudget* b, const char* time)
{
    int layout = shmWord(IO_LAYOUT_WORD);
    int inputs = layout >= 2 && layout <= 4 ? 4 : 1;
    for (int i = 0; i < inputs; ++i) {
        char token[16];
        snprintf(token, sizeof token, "IO_Input%d", i + 1);
        if (!appendInitialized(b, vendorTopicNames() ? "tns1:Device/tnsiv:BinaryInput" : "tns1:Device/Trigger/BinaryInput",
                               time, "BinaryInputToken", token, "State", shmWord(INPUT_WORD_1 + i) == 1 ? "1" : "0"))
            return 0;
    }
    return 1;
}

static int sendRelays(MessageBudget* b, const char* time)
{
    int layout = shmWord(IO_LAYOUT_WORD);
    int relays = layout == 3 || layout == 4 ? 2 : 1;
    for (int i = 0; i < relays; ++i) {
        char token[16];
        snprintf(token, sizeof token, "IO_Output%d", i + 1);
        if (!appendInitialized(b, vendorTopicNames() ? "tns1:Device/tnsiv:Relay" : "tns1:Device/Trigger/Relay", time,
                               "RelayToken", token, "State", shmWord(RELAY_WORD_1 + i) == 1 ? "closed" : "open"))
            return 0;
    }
    return 1;
}

void PullMsg_SendFirstEventState(int filterCode, int messageLimit, const char* timeText)
{
    MessageBudget b = {messageLimit};
    int tampering = shmWord(MODEL_CODE_WORD) != 2;
    switch (filterCode) {
    case 1: sendMotion(&b, timeText); break;
    case 2: sendTampering(&b, timeText); break;
    case 3:
    case 4: sendMotion(&b, timeText) && (!tampering || sendTampering(&b, timeText)); break;
    case 5: sendInputs(&b, timeText); break;
    case 6: sendRelays(&b, timeText); break;
    case 7:
    case 8: sendInputs(&b, timeText) && sendRelays(&b, timeText); break;
    case 9:
        appendInitialized(&b, "tns1:VideoAnalytics/tnsavg:MotionDetection", timeText, "VideoSourceToken",
                          "VideoSource1", "motion", shmWord(MOTION_WORD) == 1 ? "1" : "0");
        break;
    default:
        sendMotion(&b, timeText) && (!tampering || sendTampering(&b, timeText)) && sendInputs(&b, timeText) &&
            sendRelays(&b, timeText);
        break;
    }
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

// Hands over what the event process left, then starts the file over (an
// empty file put in its place, so it is never missing). Lines that do not fit
// the answer stay in the file for the next pull; when the file cannot be
// rewritten the answer is the store's fault and every line stays for the next
// pull, rather than arriving twice.
static void drainEventFile(const char* path)
{
    for (int polls = 0; polls < 10000 && shmWord(EVENT_FILE_BUSY_WORD) == 1; ++polls)
        usleep(1000);
    FILE* f = fopenRoot(path, "r");
    if (!f)
        return;
    long taken = appendFileToResponse(f, sizeof "</tev:PullMessagesResponse>");
    struct stat st;
    int rest = fstat(fileno(f), &st) == 0 && st.st_size > taken;
    if (rest && taken == 0) {
        // Longer than any answer: kept, it would block the file for ever.
        taken = endOfFirstLine(f);
        logServiceError("PullMessages", "%s", "an event message longer than an answer was dropped");
    }
    fclose(f);
    if ((rest ? keepFileTail(path, taken) : replaceFileContent(path, "")) != 0)
        answerStoreFailure(path);
}

static long eventFileSize(const char* path)
{
    char real[512];
    struct stat st;
    return stat(resolvePath(path, real, sizeof real), &st) == 0 ? (long)st.st_size : 0;
}

static int maxMessageLimit()
{
    if (shmWord(MODEL_CODE_WORD) == 2)
        return 3;
    int layout = shmWord(IO_LAYOUT_WORD);
    return layout == 2 ? 7 : layout == 3 || layout == 4 ? 8 : 4;
}

void PullMessages()
{
    char text[33];
    int timeout = MAX_PULL_SECONDS;
    if (requestText("wsnt:Timeout", text, 33)) {
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
    int limit = requestText("wsnt:MessageLimit", text, 33) ? (int)strtol(text, 0, 10) : 2;

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
    if (shmWord(SUBSCRIPTION_CHANGE_WORD) == 2) {
        startAnswer(current, stored);
        PullMsg_SendFirstEventState(filter, limit, current);
        setShmWord(SUBSCRIPTION_CHANGE_WORD, 0);
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
