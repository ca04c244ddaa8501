// Subscriptions: the slot table shared with the camera's event process,
// creating pull points and push subscriptions, renewing and ending them.
#include "events/events.h"
#include "state/shm_words.h"
#include "state/timespan.h"
#include "state/calendar.h"
#include "state/netaddr.h"
#include "frame/frame.h"
#include "frame/request_values.h"
#include "frame/handlers.h"
#include "frame/xmlsearch.h"
#include "state/checkers.h"
#include "state/command.h"
#include "state/config.h"
#include "state/paths.h"
#include "state/shm.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#define VARIANT_VENDOR_TOPICS 32
#define VARIANT_ONE_PULL_POINT 34
#define VARIANT_LENIENT_UNSUBSCRIBE 11

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
    formatChecked(out, n, "%d-%02d-%02dT%02d:%02d:%02d", words[0], words[1], words[2], words[3], words[4], words[5]);
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

// The event service's fault, up to the opening of its detail; the caller
// appends the detail and closes it with closeEventFault.
static void openEventFault(const char* reason)
{
    setResponse("<SOAP-ENV:Fault><SOAP-ENV:Code><SOAP-ENV:Value>SOAP-ENV:Sender</SOAP-ENV:Value>"
                "<SOAP-ENV:Subcode><SOAP-ENV:Value>ter:InvalidArgVal</SOAP-ENV:Value></SOAP-ENV:Subcode>"
                "</SOAP-ENV:Code><SOAP-ENV:Reason><SOAP-ENV:Text xml:lang=\"en\">%s</SOAP-ENV:Text></SOAP-ENV:Reason>"
                "<SOAP-ENV:Node>http://www.w3.org/2003/05/soap-envelope/node/ultimateReceiver</SOAP-ENV:Node>"
                "<SOAP-ENV:Role>http://www.w3.org/2003/05/soap-envelope/role/ultimateReceiver</SOAP-ENV:Role>"
                "<SOAP-ENV:Detail>", reason);
}

static void closeEventFault()
{
    appendMarkup("</SOAP-ENV:Detail></SOAP-ENV:Fault>");
    G_httpAck = 400;
}

void writeEventFault(const char* reason, const char* detail)
{
    openEventFault(reason);
    appendResponse("%s", detail);
    closeEventFault();
}

void writeInvalidFilterFault(const char* reason, const char* description, const char* unknownFilter)
{
    struct tm now;
    char stamp[64];
    currentTime(&now);
    formatTime(stamp, sizeof stamp, &now);
    openEventFault(reason);
    appendResponse("<wsnt:InvalidFilterFault><bf2:Timestamp>%s</bf2:Timestamp><bf2:Description>%s"
                   "</bf2:Description><wsnt:UnknownFilter>%s</wsnt:UnknownFilter></wsnt:InvalidFilterFault>",
                   stamp, description, unknownFilter);
    closeEventFault();
}

void writeResourceUnknownFault()
{
    struct tm now;
    char stamp[64];
    currentTime(&now);
    formatTime(stamp, sizeof stamp, &now);
    openEventFault("Argument Value Invalid");
    appendResponse("<wsrf-r:ResourceUnknownFault><bf2:Timestamp>%s</bf2:Timestamp>"
                   "<bf2:Description>Resource unknown</bf2:Description></wsrf-r:ResourceUnknownFault>", stamp);
    closeEventFault();
}

enum FilterResult { FILTER_OK = 0, FILTER_BAD_TOPIC = 1, FILTER_BAD_CONTENT = 2 };

int check_msg_content(const char* text, int length)
{
    char term[257], function[257], rest[257];
    memset(function, 0, sizeof function);
    memset(rest, 0, sizeof rest);
    snprintf(term, sizeof term, "%.*s", length < 0 ? 0 : length, text);
    // A term without the item part is no item test at all.
    if (sscanf(term, "%256[^(](//tt:SimpleItem[%256s", function, rest) != 2)
        return 1;
    if (strcmp(function, "boolean") != 0)
        return 1;
    char name[257] = "", value[257] = "";
    sscanf(rest, "@Name=\"%256s", name);
    sscanf(rest, "@Value=\"%256s", value);
    return 0;
}

// Checks each term of a content cut at every separator; 0 when all pass.
static int checkContentTerms(const char* content, const char* separator)
{
    const char* p = content;
    size_t sepLen = strlen(separator);
    for (;;) {
        const char* next = strstr(p, separator);
        int length = next ? (int)(next - p) : (int)strlen(p);
        if (check_msg_content(p, length))
            return 1;
        if (!next)
            return 0;
        p = next + sepLen;
    }
}

static int contentAloneAccepted(const char* content)
{
    if (strstr(content, "or "))
        return !checkContentTerms(content, "or ");
    if (strstr(content, "and "))
        return !checkContentTerms(content, "and ");
    return 1;
}

// With a known topic root, only a content that begins with the word
// "boolean" (or names the item State) passes.
static int contentWithTopicAccepted(const char* content, int doubledParenthesis)
{
    char word[257] = "", name[257] = "";
    sscanf(content, doubledParenthesis ? "%256s((//tns1:SimpleItem[@Name=\"%256[^\"]\"])"
                                       : "%256s(//tns1:SimpleItem[@Name=\"%256[^\"]\"])", word, name);
    return strcmp(word, "boolean") == 0 || strcmp(name, "State") == 0;
}

struct TopicRow {
    const char* root;
    const char* first;   // remainder substring of the first source
    const char* second;  // remainder substring of the second source
    int firstCode, secondCode, bothCode, emptyCode;
};

static const TopicRow ONVIF_TOPICS[] = {
    {"tns1:VideoSource", "MotionAlarm", "TamperingDetection", 1, 2, 3, 4},
    {"tns1:Device", "Trigger/BinaryInput", "Trigger/Relay", 5, 6, 7, 8},
};
static const TopicRow VENDOR_TOPICS[] = {
    {"tns1:VideoAnalytics", "tnsaxis:MotionDetection", "TamperingDetection", 1, 2, 3, 4},
    {"tns1:Device", "tnsiv:BinaryInput", "tnsiv:Relay", 5, 6, 7, 8},
};

// Reduces the request's filter to one code; FILTER_BAD_* when refused.
static int classifyFilter(int variant, int isSubscribe, int* code)
{
    char topic[65], content[257];
    int hasTopic = requestText("wsnt:TopicExpression", topic, 65);
    int hasContent = requestText("wsnt:MessageContent", content, (isSubscribe ? 64 : 256) + 1);
    if (!hasTopic && !hasContent) {
        *code = 10;
        return FILTER_OK;
    }
    if (!hasTopic) {
        *code = 0;
        return contentAloneAccepted(content) ? FILTER_OK : FILTER_BAD_CONTENT;
    }
    char root[65] = "", rest[65] = "";
    sscanf(topic, "%64[^/]/%64s", root, rest);
    int vendorNames = variant == VARIANT_VENDOR_TOPICS;
    const TopicRow* rows = vendorNames ? VENDOR_TOPICS : ONVIF_TOPICS;
    for (int i = 0; i < 2; ++i) {
        const TopicRow& row = rows[i];
        if (strcmp(root, row.root) != 0)
            continue;
        int first = strstr(rest, row.first) != 0, second = strstr(rest, row.second) != 0;
        if (!rest[0])
            *code = row.emptyCode;
        else if (first && second)
            *code = row.bothCode;
        else if (first)
            *code = row.firstCode;
        else if (second)
            *code = row.secondCode;
        else
            return FILTER_BAD_TOPIC;
        return !hasContent || contentWithTopicAccepted(content, isSubscribe) ? FILTER_OK : FILTER_BAD_CONTENT;
    }
    int defaultVariant = !vendorNames && variant != VARIANT_ONE_PULL_POINT;
    if (defaultVariant && strcmp(root, "tns1:VideoAnalytics") == 0) {
        if (!strstr(rest, "tnsavg:MotionDetection"))
            return FILTER_BAD_TOPIC;
        *code = 9;
        return !hasContent || contentWithTopicAccepted(content, isSubscribe) ? FILTER_OK : FILTER_BAD_CONTENT;
    }
    if (defaultVariant && strstr(topic, "(null)")) {
        *code = 0;
        return !hasContent || contentAloneAccepted(content) ? FILTER_OK : FILTER_BAD_CONTENT;
    }
    return FILTER_BAD_TOPIC;
}

static int refuseFilter(int result)
{
    if (result == FILTER_OK)
        return 0;
    writeInvalidFilterFault("Argument Value Invalid", "The Subscribe message contained an unsupported filter",
                            result == FILTER_BAD_TOPIC ? "wsnt:TopicExpression" : "wsnt:MessageContent");
    return 1;
}

static int firstFreeSlot()
{
    for (int k = 0; k < SUBSCRIPTION_SLOTS; ++k)
        if (subscriptionSlot(k)[SLOT_STATE] == SLOT_FREE)
            return k;
    return -1;
}

static void parseAddressParts(const char* text, int parts[4])
{
    parts[0] = parts[1] = parts[2] = parts[3] = 0;
    sscanf(text, "%d.%d.%d.%d", &parts[0], &parts[1], &parts[2], &parts[3]);
}

// Claims the first free slot (a second scan: the response was written from
// the first one), state first, as the event process expects.
static void claimSlot(int state, const int address[4], int filterCode, const char* termination, int mode)
{
    int k = firstFreeSlot();
    if (k < 0)
        return;
    int* slot = subscriptionSlot(k);
    slot[SLOT_STATE] = state;
    for (int i = 0; i < 4; ++i)
        slot[SLOT_ADDRESS + i] = address[i];
    slot[SLOT_NUMBER] = k + 1;
    slot[SLOT_FILTER] = filterCode;
    slot[SLOT_RESERVED] = 0;
    storeTime(slot + SLOT_TERMINATION, termination);
    slot[SLOT_TERMINATION_MODE] = mode;
}

// The subscription address, the times, and the termination to store.
static int writeSubscriptionReference(const char* openTag, const char* referenceTag, char* termination, size_t n,
                                      int* number)
{
    char camera[64] = "", service[96];
    addressFromNetworkFile(camera, sizeof camera);
    serviceAddressFor(camera, service, sizeof service);
    int k = firstFreeSlot();
    int idx = k < 0 ? 0 : k;
    *number = idx + 1;
    setResponse("<%s><%s><wsa5:Address>%s/onvif/device_service?Idx=%d</wsa5:Address></%s>", openTag,
                referenceTag, service, idx, referenceTag);
    char initial[33];
    int hasInitial = requestText("tet:InitialTerminationTime", initial, 33);
    struct tm now;
    char current[64];
    currentTime(&now);
    formatTime(current, sizeof current, &now);
    int mode = terminationFromDuration(initial, hasInitial, &now, termination, n);
    appendResponse("<wsnt:CurrentTime>%s</wsnt:CurrentTime><wsnt:TerminationTime>%s</wsnt:TerminationTime></%s>",
                   current, termination, openTag);
    return mode;
}

void CreatePullPointSubscription()
{
    int variant = shmWord(VARIANT_CODE);
    int pullPoints = 0;
    for (int k = 0; k < SUBSCRIPTION_SLOTS; ++k)
        pullPoints += subscriptionSlot(k)[SLOT_STATE] == SLOT_PULL;
    if (variant == VARIANT_ONE_PULL_POINT ? pullPoints >= 1 : pullPoints > 4) {
        writeInvalidFilterFault("Too Many Client To Connect",
                                variant == VARIANT_ONE_PULL_POINT ? "The Subscribe Allow 1 Client To Connect."
                                                                  : "The Subscribe Allow 5 Client To Connect.",
                                "wsnt:TopicExpression");
        return;
    }
    int code = 10;
    if (refuseFilter(classifyFilter(variant, 0, &code)))
        return;
    char termination[64], path[64];
    int number;
    int mode = writeSubscriptionReference("tev:CreatePullPointSubscriptionResponse", "tev:SubscriptionReference",
                                          termination, sizeof termination, &number);
    // With the table full the answer names slot 0, whose file is its subscriber's: leave it.
    if (firstFreeSlot() >= 0) {
        eventFilePath(number, path, sizeof path);
        // Without its event file the pull point could never deliver: no slot.
        if (replaceFileContent(path, "") != 0)
            return answerStoreFailure(path);
    }
    int host[4];
    parseAddressParts(G_Host, host);
    claimSlot(SLOT_PULL, host, code, termination, mode);
    setShmWord(SUBSCRIPTION_CHANGE_WORD, 2);
}

void Subscribe()
{
    int variant = shmWord(VARIANT_CODE);
    int code = 10;
    if (refuseFilter(classifyFilter(variant == VARIANT_VENDOR_TOPICS ? VARIANT_VENDOR_TOPICS : 0, 1, &code)))
        return;
    char consumer[129];
    // The record keeps the address on one line: an address with a line break is no address.
    if (!requestText("a:Address", consumer, 129) || strcmp(consumer, "(null)") == 0 || hasLineBreak(consumer)) {
        writeInvalidFilterFault("Argument Value Invalid", "The Subscribe message contained an unsupported filter",
                                "wsnt:Need Assign Address");
        return;
    }
    char termination[64], path[64], record[256];
    int number;
    int mode = writeSubscriptionReference("wsnt:SubscribeResponse", "wsnt:SubscriptionReference", termination,
                                          sizeof termination, &number);
    if (firstFreeSlot() >= 0) {
        pushRecordPath(number, path, sizeof path);
        snprintf(record, sizeof record, "consumer_address=%s\nclient_no=%d\n", consumer, number);
        if (replaceFileContent(path, record) != 0)
            return answerStoreFailure(path);
    }
    char scheme[129] = "", host[129] = "", rest[129] = "";
    sscanf(consumer, "%128[^:]://%128[^:]:%128s", scheme, host, rest);
    int address[4];
    parseAddressParts(host, address);
    claimSlot(SLOT_PUSH, address, code, termination, mode);
    setShmWord(SUBSCRIPTION_CHANGE_WORD, 1);
}

void Renew()
{
    sleepMs(1000);
    int* slot = findSubscription(requestedSubscriptionNumber(), (1u << SLOT_PULL) | (1u << SLOT_PUSH));
    if (!slot) {
        writeResourceUnknownFault();
        return;
    }
    char requested[33];
    if (!requestText("tet:TerminationTime", requested, 33)) {
        setResponse("<wsnt:RenewResponse><wsnt:TerminationTime>Z</wsnt:TerminationTime>"
                    "<wsnt:CurrentTime>Z</wsnt:CurrentTime></wsnt:RenewResponse>");
        return;
    }
    struct tm now;
    char current[64], termination[64];
    currentTime(&now);
    formatTime(current, sizeof current, &now);
    if (strstr(requested, "PT")) {
        terminationFromDuration(requested, 1, &now, termination, sizeof termination);
    } else {
        int f[6] = {0, 0, 0, 0, 0, 0};
        sscanf(requested, "%d-%d-%dT%d:%d:%dZ", &f[0], &f[1], &f[2], &f[3], &f[4], &f[5]);
        snprintf(termination, sizeof termination, "%d-%02d-%02dT%02d:%02d:%02d", f[0], f[1], f[2], f[3], f[4], f[5]);
        // A time already past is taken as it is, and reported as now.
        if (A_larger_than_B(current, termination))
            snprintf(current, sizeof current, "%s", termination);
    }
    storeTime(slot + SLOT_TERMINATION, termination);
    setResponse("<wsnt:RenewResponse><wsnt:TerminationTime>%sZ</wsnt:TerminationTime>"
                "<wsnt:CurrentTime>%sZ</wsnt:CurrentTime></wsnt:RenewResponse>", termination, current);
}

static void removeRoot(const char* path)
{
    char real[512];
    unlink(resolvePath(path, real, sizeof real));
}

void Unsubscribe()
{
    int* slot = findSubscription(requestedSubscriptionNumber(), 0xFEu);
    if (!slot) {
        if (shmWord(VARIANT_CODE) == VARIANT_LENIENT_UNSUBSCRIBE)
            setResponse("<wsnt:UnsubscribeResponse></wsnt:UnsubscribeResponse>");
        else
            writeResourceUnknownFault();
        return;
    }
    char path[64];
    int state = slot[SLOT_STATE];
    if (state != SLOT_PUSH) {
        eventFilePath(slot[SLOT_NUMBER], path, sizeof path);
        removeRoot(path);
    }
    if (state != SLOT_PULL) {
        pushRecordPath(slot[SLOT_NUMBER], path, sizeof path);
        removeRoot(path);
    }
    for (int i = 0; i < SLOT_WORDS; ++i)
        slot[i] = 0;
    setShmWord(UNSUBSCRIBE_CLEAR_WORD, 0);
    setResponse("<wsnt:UnsubscribeResponse></wsnt:UnsubscribeResponse>");
}

void SetSynchronizationPoint()
{
    if (G_XML != 2) {
        // The media service's form: the streams start over with a key frame.
        runCameraProgramWith("h264/restart_stream.cgi", 0, 0);
        setResponse("<trt:SetSynchronizationPointResponse></trt:SetSynchronizationPointResponse>");
        return;
    }
    int number = requestedSubscriptionNumber();
    for (int k = 0; k < SUBSCRIPTION_SLOTS && number > 0; ++k) {
        int* slot = subscriptionSlot(k);
        if (slot[SLOT_NUMBER] != number)
            continue;
        if (slot[SLOT_STATE] == SLOT_PULL) {
            slot[SLOT_STATE] = SLOT_PULL_SYNC;
            break;
        }
        if (slot[SLOT_STATE] == SLOT_PUSH) {
            slot[SLOT_STATE] = SLOT_PUSH_SYNC;
            break;
        }
    }
    setResponse("<tev:SetSynchronizationPointResponse></tev:SetSynchronizationPointResponse>");
}
