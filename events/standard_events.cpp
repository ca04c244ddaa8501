// The event service in the ONVIF mode: subscriptions that end with their
// term, pulls at each subscription's own address, and notifications in the
// standard's topics and values whatever form the event process wrote.
#include "events/events.h"
#include "state/shm_words.h"
#include "state/timespan.h"
#include "state/calendar.h"
#include "frame/frame.h"
#include "frame/request_values.h"
#include "state/config.h"
#include "state/model.h"
#include "state/paths.h"
#include "state/shm.h"

#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <tinyxml.h>
#include <unistd.h>

#define MAX_PULL_SECONDS 60
#define ROUND_MS 100
// One notification line of an event file, and its standard form.
#define NOTIFICATION_SIZE 2048

int maxPullPoints()
{
    // The standard asks for two at least, also of the models that keep one.
    int most = modelValue(Cap::EventsPullPoints);
    return most < 2 ? 2 : most;
}

// Adds the zone letter to a UTC time text that has none.
static void withZone(char* out, size_t n)
{
    size_t len = strlen(out);
    if (len > 0 && out[len - 1] != 'Z' && len + 1 < n) {
        out[len] = 'Z';
        out[len + 1] = 0;
    }
}

void zonedNow(char* out, size_t n, struct tm* now)
{
    currentTime(now);
    formatTime(out, n, now);
    withZone(out, n);
}

static void zonedSlotTime(const int* slot, char* out, size_t n)
{
    slotTime(slot + SLOT_TERMINATION, out, n);
    withZone(out, n);
}

void endExpiredSubscriptions()
{
    struct tm now;
    char current[64], termination[64];
    currentTime(&now);
    formatTime(current, sizeof current, &now);
    for (int k = 0; k < SUBSCRIPTION_SLOTS; ++k) {
        int* slot = subscriptionSlot(k);
        if (slot[SLOT_STATE] < SLOT_PULL || slot[SLOT_STATE] > SLOT_PUSH_SYNC)
            continue;
        slotTime(slot + SLOT_TERMINATION, termination, sizeof termination);
        // The term is up at its last second, not after it.
        if (!expiration_check(termination, current))
            endSubscription(slot);
    }
}

const char* eventValue(EventKind kind, int on)
{
    if (kind == EVENT_RELAY)
        return on ? "active" : "inactive";
    return on ? "true" : "false";
}

int printNotification(char* out, size_t n, const char* topic, const char* time, const char* operation,
                      const char* sourceName, const char* sourceValue, const char* dataName, const char* value)
{
    char source[256], data[256], at[64];
    xmlEscape(sourceValue, source, sizeof source);
    xmlEscape(value, data, sizeof data);
    xmlEscape(time, at, sizeof at);
    int len = snprintf(out, n,
                       "<wsnt:NotificationMessage><wsnt:Topic Dialect=\"http://www.onvif.org/ver10/tev/"
                       "topicExpression/ConcreteSet\">%s</wsnt:Topic><wsnt:Message><tt:Message UtcTime=\"%s\" "
                       "PropertyOperation=\"%s\"><tt:Source><tt:SimpleItem Name=\"%s\" Value=\"%s\"/></tt:Source>"
                       "<tt:Data><tt:SimpleItem Name=\"%s\" Value=\"%s\"/></tt:Data></tt:Message></wsnt:Message>"
                       "</wsnt:NotificationMessage>",
                       topic, at, operation, sourceName, source, dataName, data);
    return len > 0 && (size_t)len < n;
}

// --- Reading what the event process wrote ---

static const char* localName(const char* name)
{
    const char* colon = strrchr(name, ':');
    return colon ? colon + 1 : name;
}

static TiXmlElement* child(TiXmlNode* parent, const char* local)
{
    if (!parent)
        return 0;
    for (TiXmlElement* e = parent->FirstChildElement(); e; e = e->NextSiblingElement())
        if (strcmp(localName(e->Value()), local) == 0)
            return e;
    return 0;
}

// The kind a topic names, in the camera's older names or the standard's; -1
// for a topic this camera does not raise.
static int kindOfTopic(const char* topic)
{
    if (strstr(topic, "MotionAlarm") || strstr(topic, "MotionDetection"))
        return EVENT_MOTION;
    if (strstr(topic, "TamperingDetection") || strstr(topic, "GlobalSceneChange"))
        return EVENT_TAMPERING;
    if (strstr(topic, "BinaryInput") || strstr(topic, "DigitalInput"))
        return EVENT_INPUT;
    if (strstr(topic, "Relay"))
        return EVENT_RELAY;
    return -1;
}

static int valueIsOn(const char* value)
{
    static const char* const ON[] = {"1", "true", "closed", "active", "on"};
    for (const char* on : ON)
        if (strcmp(value, on) == 0)
            return 1;
    return 0;
}

static const char* attributeOr(TiXmlElement* e, const char* name, const char* otherwise)
{
    const char* v = e ? e->Attribute(name) : 0;
    return v ? v : otherwise;
}

int standardNotification(const char* fragment, char* out, size_t n)
{
    TiXmlDocument doc;
    doc.Parse(fragment);
    TiXmlElement* root = doc.RootElement();
    // Only a whole message with its Message goes out; anything else is dropped.
    if (doc.Error() || !root || strcmp(localName(root->Value()), "NotificationMessage") != 0)
        return 0;
    TiXmlElement* topic = child(root, "Topic");
    TiXmlElement* message = child(child(root, "Message"), "Message");
    if (!message)
        return 0;
    int kind = topic && topic->GetText() ? kindOfTopic(topic->GetText()) : -1;
    int len = snprintf(out, n, "%s", fragment);
    if (kind < 0)
        return len >= 0 && (size_t)len < n;
    TiXmlElement* source = child(child(message, "Source"), "SimpleItem");
    TiXmlElement* data = child(child(message, "Data"), "SimpleItem");
    EventNames names = eventNames((EventKind)kind);
    char item[64], time[64];
    const char* sourceValue = attributeOr(source, "Value", "");
    if (kind == EVENT_INPUT || kind == EVENT_RELAY) {
        // The connector number the token ends with names the standard token.
        const char* digits = sourceValue + strlen(sourceValue);
        while (digits > sourceValue && digits[-1] >= '0' && digits[-1] <= '9')
            --digits;
        eventSourceValue(names, atoi(digits), item, sizeof item);
    } else {
        snprintf(item, sizeof item, "%s", sourceValue[0] ? sourceValue : names.sourceValue);
    }
    const char* at = attributeOr(message, "UtcTime", "");
    size_t atLength = strlen(at);
    snprintf(time, sizeof time, "%s%s", at, atLength && at[atLength - 1] != 'Z' ? "Z" : "");
    const char* operation = attributeOr(message, "PropertyOperation", "Changed");
    if (strcmp(operation, "Initialized") != 0 && strcmp(operation, "Deleted") != 0)
        operation = "Changed";
    const char* value = eventValue((EventKind)kind, valueIsOn(attributeOr(data, "Value", "")));
    // Already in the standard form: handed over as written.
    if (strcmp(topic->GetText(), names.topic) == 0 && strcmp(attributeOr(source, "Name", ""), names.sourceName) == 0 &&
        strcmp(attributeOr(data, "Name", ""), names.dataName) == 0 &&
        strcmp(attributeOr(data, "Value", ""), value) == 0 && strcmp(time, at) == 0)
        return len >= 0 && (size_t)len < n;
    return printNotification(out, n, names.topic, time, operation, names.sourceName, item, names.dataName, value);
}

// --- Content filters ---

void storeContentFilter(int number)
{
    char topic[257], content[257], path[64], record[300];
    contentFilterPath(number, path, sizeof path);
    int hasTopic = requestText("wsnt:TopicExpression", topic, sizeof topic) == Read::Value;
    int hasContent = requestText("wsnt:MessageContent", content, sizeof content) == Read::Value;
    if (hasTopic || hasContent) {
        snprintf(record, sizeof record, "%u\n%s", hasTopic ? standardTopicExpressionKinds(topic) : 0u,
                 hasContent ? content : "");
        replaceFileContent(path, record);
    } else {
        char real[512];
        unlink(resolvePath(path, real, sizeof real));
    }
}

// The kind of a notification's topic, -1 when none.
static int notificationKind(const char* message)
{
    const char* topic = strstr(message, "<wsnt:Topic");
    topic = topic ? strchr(topic, '>') : 0;
    if (!topic)
        return -1;
    char text[128];
    snprintf(text, sizeof text, "%.*s", (int)strcspn(topic + 1, "<"), topic + 1);
    return kindOfTopic(text);
}

int subscriptionTakes(int number, const char* message)
{
    char path[64], record[300];
    contentFilterPath(number, path, sizeof path);
    FILE* f = fopenRoot(path, "r");
    if (!f)
        return 1;
    size_t n = fread(record, 1, sizeof record - 1, f);
    fclose(f);
    record[n] = 0;
    char* content = strchr(record, '\n');
    unsigned kinds = (unsigned)strtoul(record, 0, 10);
    int kind = notificationKind(message);
    if (kinds && kind >= 0 && !(kinds & (1u << kind)))
        return 0;
    return !content || !content[1] || contentTakes(content + 1, message);
}

// --- PullMessages ---

static const char CLOSING[] = "</tev:PullMessagesResponse>";

static void startAnswer(const int* slot)
{
    struct tm now;
    char current[64], termination[64];
    zonedNow(current, sizeof current, &now);
    zonedSlotTime(slot, termination, sizeof termination);
    setResponse("<tev:PullMessagesResponse><tev:CurrentTime>%s</tev:CurrentTime>"
                "<tev:TerminationTime>%s</tev:TerminationTime>", current, termination);
}

// Hands over up to limit notifications in the standard form; the rest stay
// in the file for the next pull.
static void drainStandard(const char* path, int number, int limit)
{
    waitForEventFile();
    FILE* f = fopenRoot(path, "r");
    if (!f)
        return;
    static char line[NOTIFICATION_SIZE], standard[NOTIFICATION_SIZE];
    long taken = 0;
    int count = 0;
    while (count < limit && fgets(line, sizeof line, f)) {
        size_t len = strlen(line);
        if (len > 0 && line[len - 1] != '\n' && !feof(f)) {
            // Longer than any notification: dropped, or it would block the file.
            int c;
            while ((c = fgetc(f)) != EOF && c != '\n') {}
            logServiceError("PullMessages", "%s", "an event message longer than a notification was dropped");
            taken = ftell(f);
            continue;
        }
        line[strcspn(line, "\r\n")] = 0;
        if (line[0] && !standardNotification(line, standard, sizeof standard - 1)) {
            logServiceError("PullMessages", "%s", "an event file line that is no whole message was dropped");
        } else if (line[0] && subscriptionTakes(number, standard)) {
            // One message a line, as the event process writes them.
            strcat(standard, "\n");
            if (strlen(G_Response) + strlen(standard) + sizeof CLOSING >= G_RESPONSE_SIZE)
                break;
            appendMarkup(standard);
            ++count;
        }
        taken = ftell(f);
    }
    struct stat st;
    int rest = fstat(fileno(f), &st) == 0 && st.st_size > taken;
    fclose(f);
    finishEventFile(path, taken, rest);
}

// The initial states go ahead of the queued messages, so that a small
// message limit hands them over in order, over several pulls if need be.
static void queueInitialStates(int* slot, const char* path)
{
    static char queue[G_RESPONSE_SIZE];
    struct tm now;
    char current[64];
    zonedNow(current, sizeof current, &now);
    standardInitialStates(slot[SLOT_FILTER], current, queue, sizeof queue / 2);
    // Only the states the content filter takes.
    size_t used = 0;
    for (char* line = queue; *line;) {
        char* end = strchr(line, '\n');
        size_t length = end ? (size_t)(end - line + 1) : strlen(line);
        char saved = line[length - 1];
        line[length - 1] = 0;
        int takes = subscriptionTakes(slot[SLOT_NUMBER], line);
        line[length - 1] = saved;
        if (takes) {
            memmove(queue + used, line, length);
            used += length;
        }
        line += length;
    }
    queue[used] = 0;
    FILE* f = fopenRoot(path, "r");
    if (f) {
        used += fread(queue + used, 1, sizeof queue - used - 1, f);
        queue[used] = 0;
        fclose(f);
    }
    replaceFileContent(path, queue);
    slot[SLOT_STATE] = SLOT_PULL;
}

void standardPullMessages()
{
    endExpiredSubscriptions();
    int maxMessages = modelValue(Cap::EventsMaxMessages);
    char text[33];
    int timeout = MAX_PULL_SECONDS;
    Read timeoutRead = requestText("wsnt:Timeout", text, sizeof text);
    if (timeoutRead == Read::Refused)
        return;
    if (timeoutRead == Read::Value) {
        int h = 0, m = 0, s = 0;
        GetTimeSpanIntoTimeInteger(text, &h, &m, &s);
        long total = (long)h * 3600 + (long)m * 60 + s;
        if (total > MAX_PULL_SECONDS) {
            writePullLimitsFault(MAX_PULL_SECONDS, maxMessages);
            return;
        }
        timeout = total < 0 ? 0 : (int)total;
    }
    // A larger limit than the camera's is no fault: it answers what it can.
    long limit = 2;
    if (requestNumber("wsnt:MessageLimit", INT_MIN, INT_MAX, &limit) == Read::Refused)
        return;
    if (limit > maxMessages)
        limit = maxMessages;

    int number = requestedSubscriptionNumber();
    int* slot = findSubscription(number, (1u << SLOT_PULL) | (1u << SLOT_PULL_SYNC));
    if (!slot) {
        writeResourceUnknownFault();
        return;
    }
    // A pull keeps its pull point alive, but never shortens a renewed term.
    struct tm now;
    char stored[64], renewed[64];
    currentTime(&now);
    slotTime(slot + SLOT_TERMINATION, stored, sizeof stored);
    Carry_Time(renewed, sizeof renewed, timeout + 60, 0, 0, &now);
    if (!expiration_check(stored, renewed))
        storeTime(slot + SLOT_TERMINATION, renewed);

    char path[64];
    eventFilePath(number, path, sizeof path);
    for (int round = 0;; ++round) {
        // Unsubscribed while waiting: nothing more comes.
        if (slot[SLOT_NUMBER] != number || (slot[SLOT_STATE] != SLOT_PULL && slot[SLOT_STATE] != SLOT_PULL_SYNC))
            break;
        if (slot[SLOT_STATE] == SLOT_PULL_SYNC)
            queueInitialStates(slot, path);
        if (limit > 0 && eventFileSize(path) > 0) {
            startAnswer(slot);
            drainStandard(path, number, (int)limit);
            appendMarkup(CLOSING);
            return;
        }
        if (round >= timeout * 1000 / ROUND_MS)
            break;
        sleepMs(ROUND_MS);
    }
    startAnswer(slot);
    appendMarkup(CLOSING);
}
