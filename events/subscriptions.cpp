// The subscription actions: creating pull points and push subscriptions,
// renewing and ending them, and the event form of the synchronization point.
#include "events/events.h"
#include "state/mode.h"
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
#include "state/model.h"
#include "state/mode.h"
#include "state/shm.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

// 1 when read (or absent, *has 0); 0 when refused.
static int readInitialTermination(char* initial, size_t n, int* has)
{
    Read r = requestText("tet:InitialTerminationTime", initial, n);
    *has = r == Read::Value;
    return r != Read::Refused;
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

// The ONVIF mode writes times in UTC with their zone letter.
static const char* zoneLetter(const char* time)
{
    size_t n = strlen(time);
    return onvifMode() && n > 0 && time[n - 1] != 'Z' ? "Z" : "";
}

// The subscription address, the times, and the termination to store;
// the initial termination was read beforehand (readInitialTermination).
static int writeSubscriptionReference(const char* openTag, const char* referenceTag, const char* initial,
                                      int hasInitial, char* termination, size_t n, int* number)
{
    char camera[64] = "", service[96];
    addressFromNetworkFile(camera, sizeof camera);
    serviceAddressFor(camera, service, sizeof service);
    int k = firstFreeSlot();
    int idx = k < 0 ? 0 : k;
    *number = idx + 1;
    setResponse("<%s><%s><wsa5:Address>%s/onvif/device_service?Idx=%d</wsa5:Address></%s>", openTag,
                referenceTag, service, idx, referenceTag);
    struct tm now;
    char current[64];
    currentTime(&now);
    formatTime(current, sizeof current, &now);
    int mode = terminationFromDuration(initial, hasInitial, &now, termination, n);
    appendResponse("<wsnt:CurrentTime>%s%s</wsnt:CurrentTime><wsnt:TerminationTime>%s%s</wsnt:TerminationTime></%s>",
                   current, zoneLetter(current), termination, zoneLetter(termination), openTag);
    return mode;
}

// The ONVIF mode ends subscriptions past their term first, and refuses one
// the table has no room for; 1 when refused.
static int standardRoomRefused(int pullPoint)
{
    if (!onvifMode())
        return 0;
    endExpiredSubscriptions();
    int pullPoints = 0;
    for (int k = 0; k < SUBSCRIPTION_SLOTS; ++k) {
        int state = subscriptionSlot(k)[SLOT_STATE];
        pullPoints += state == SLOT_PULL || state == SLOT_PULL_SYNC;
    }
    if (firstFreeSlot() >= 0 && (!pullPoint || pullPoints < maxPullPoints()))
        return 0;
    writeCreationFailedFault();
    return 1;
}

void CreatePullPointSubscription()
{
    if (standardRoomRefused(1))
        return;
    int onePullPoint = modelHas(Cap::EventsOnePullPoint);
    int pullPoints = 0;
    for (int k = 0; k < SUBSCRIPTION_SLOTS; ++k)
        pullPoints += subscriptionSlot(k)[SLOT_STATE] == SLOT_PULL;
    if (!onvifMode() && pullPoints >= modelValue(Cap::EventsPullPoints)) {
        writeInvalidFilterFault("Too Many Client To Connect",
                                onePullPoint ? "The Subscribe Allow 1 Client To Connect."
                                                                  : "The Subscribe Allow 5 Client To Connect.",
                                "wsnt:TopicExpression");
        return;
    }
    int code = FILTER_NONE;
    if (refuseFilter(classifyFilter(modelHas(Cap::EventsVendorTopics), onePullPoint, 0, &code)))
        return;
    char termination[64], path[64], initial[33];
    int number, hasInitial;
    if (!readInitialTermination(initial, sizeof initial, &hasInitial))
        return;
    int mode = writeSubscriptionReference("tev:CreatePullPointSubscriptionResponse", "tev:SubscriptionReference",
                                          initial, hasInitial, termination, sizeof termination, &number);
    // With the table full the answer names slot 0, whose file is its subscriber's: leave it.
    if (firstFreeSlot() >= 0) {
        eventFilePath(number, path, sizeof path);
        // Without its event file the pull point could never deliver: no slot.
        if (replaceFileContent(path, "") != 0)
            return answerStoreFailure(path);
    }
    int host[4];
    parseAddressParts(G_Host, host);
    // In the ONVIF mode a new pull point owes its own first pull the initial
    // states: it starts as if a synchronization point were asked for.
    claimSlot(onvifMode() ? SLOT_PULL_SYNC : SLOT_PULL, host, code, termination, mode);
    if (onvifMode())
        storeContentFilter(number);
    setShmWord(SUBSCRIPTION_CHANGE_WORD, SUBSCRIPTION_PULL_ADDED);
}

void Subscribe()
{
    if (standardRoomRefused(0))
        return;
    int code = FILTER_NONE;
    if (refuseFilter(classifyFilter(modelHas(Cap::EventsVendorTopics), 0, 1, &code)))
        return;
    char consumer[129];
    // The record keeps the address on one line: an address with a line break is no address.
    Read consumerRead = requestText("a:Address", consumer, 129);
    if (consumerRead == Read::Refused)
        return;
    if (consumerRead == Read::Absent || strcmp(consumer, "(null)") == 0 || hasLineBreak(consumer)) {
        writeInvalidFilterFault("Argument Value Invalid", "The Subscribe message contained an unsupported filter",
                                "wsnt:Need Assign Address");
        return;
    }
    char termination[64], path[64], record[256], initial[33];
    int number, hasInitial;
    if (!readInitialTermination(initial, sizeof initial, &hasInitial))
        return;
    int mode = writeSubscriptionReference("wsnt:SubscribeResponse", "wsnt:SubscriptionReference", initial,
                                          hasInitial, termination, sizeof termination, &number);
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
    // In the ONVIF mode the event process owes a new subscriber the initial
    // states, as after a synchronization point.
    claimSlot(onvifMode() ? SLOT_PUSH_SYNC : SLOT_PUSH, address, code, termination, mode);
    if (onvifMode())
        storeContentFilter(number);
    setShmWord(SUBSCRIPTION_CHANGE_WORD, SUBSCRIPTION_PUSH_ADDED);
}

// Every subscription state a request can name in the ONVIF mode.
static const unsigned ANY_SUBSCRIPTION = (1u << SLOT_PULL) | (1u << SLOT_PUSH) | (1u << SLOT_PULL_SYNC) |
                                         (1u << SLOT_PUSH_SYNC);

void Renew()
{
    unsigned states = (1u << SLOT_PULL) | (1u << SLOT_PUSH);
    if (onvifMode()) {
        endExpiredSubscriptions();
        states = ANY_SUBSCRIPTION;
    } else {
        sleepMs(1000);
    }
    int* slot = findSubscription(requestedSubscriptionNumber(), states);
    if (!slot) {
        writeResourceUnknownFault();
        return;
    }
    char requested[33];
    Read read = requestText("tet:TerminationTime", requested, 33);
    if (read == Read::Refused)
        return;
    // The camera's own answer to a Renew without a time; the ONVIF mode
    // renews it by the default minute, as a subscription without one gets.
    if (read == Read::Absent && !onvifMode()) {
        setResponse("<wsnt:RenewResponse><wsnt:TerminationTime>Z</wsnt:TerminationTime>"
                    "<wsnt:CurrentTime>Z</wsnt:CurrentTime></wsnt:RenewResponse>");
        return;
    }
    struct tm now;
    char current[64], termination[64];
    currentTime(&now);
    formatTime(current, sizeof current, &now);
    if (read == Read::Absent) {
        terminationFromDuration("", 0, &now, termination, sizeof termination);
    } else if (strstr(requested, "PT")) {
        terminationFromDuration(requested, 1, &now, termination, sizeof termination);
    } else {
        int f[6] = {0, 0, 0, 0, 0, 0};
        if (!parseDateTime(requested, f)) {
            refuseRequestValue("InvalidArgs", "The value is not valid", "The termination time is no date and time.");
            return;
        }
        snprintf(termination, sizeof termination, "%d-%02d-%02dT%02d:%02d:%02d%s", f[0], f[1], f[2], f[3], f[4],
                 f[5], utcZone());
        // A time already past is taken as it is, and reported as now.
        if (A_larger_than_B(current, termination))
            snprintf(current, sizeof current, "%s", termination);
    }
    storeTime(slot + SLOT_TERMINATION, termination);
    // The camera always wrote the zone here, after times that now carry it
    // in the ONVIF mode.
    const char* zone = onvifMode() ? "" : "Z";
    setResponse("<wsnt:RenewResponse><wsnt:TerminationTime>%s%s</wsnt:TerminationTime>"
                "<wsnt:CurrentTime>%s%s</wsnt:CurrentTime></wsnt:RenewResponse>", termination, zone, current, zone);
}

static void removeRoot(const char* path)
{
    char real[512];
    unlink(resolvePath(path, real, sizeof real));
}

void endSubscription(int* slot)
{
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
    if (onvifMode()) {
        contentFilterPath(slot[SLOT_NUMBER], path, sizeof path);
        removeRoot(path);
    }
    for (int i = 0; i < SLOT_WORDS; ++i)
        slot[i] = 0;
}

void Unsubscribe()
{
    if (onvifMode())
        endExpiredSubscriptions();
    int* slot = findSubscription(requestedSubscriptionNumber(), 0xFEu);
    if (!slot) {
        if (modelHas(Cap::EventsLenientUnsubscribe) && !onvifMode())
            setResponse("<wsnt:UnsubscribeResponse></wsnt:UnsubscribeResponse>");
        else
            writeResourceUnknownFault();
        return;
    }
    endSubscription(slot);
    setShmWord(UNSUBSCRIBE_CLEAR_WORD, 0);
    setResponse("<wsnt:UnsubscribeResponse></wsnt:UnsubscribeResponse>");
}

void EventSetSynchronizationPoint()
{
    int number = requestedSubscriptionNumber();
    if (onvifMode()) {
        endExpiredSubscriptions();
        if (!findSubscription(number, ANY_SUBSCRIPTION)) {
            writeResourceUnknownFault();
            return;
        }
    }
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
