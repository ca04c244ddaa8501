// sim-event: the core of the simulated camera's event process (tools/sim/event
// wraps it): sets the state word of one event in the device-state segment and
// appends a Changed notification to the event file of every pull point whose
// filter takes it, named as the service names its initial states.
//   sim-event motion|tamper on|off
//   sim-event input N on|off          (N = 1 to 4)
#include "events/events.h"
#include "state/config.h"
#include "state/paths.h"
#include "state/shm.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/shm.h>
#include <time.h>

static int usage()
{
    fprintf(stderr, "usage: sim-event motion|tamper on|off | sim-event input N on|off\n");
    return 2;
}

static void appendMessage(FILE* f, const EventNames& names, const char* topic, int number, const char* value,
                          const char* now)
{
    char item[32];
    eventSourceValue(names, number, item, sizeof item);
    fprintf(f, "<wsnt:NotificationMessage><wsnt:Topic Dialect=\"http://docs.oasis-open.org/wsn/t-1/"
               "TopicExpression/Simple\">%s</wsnt:Topic>", topic);
    fprintf(f, "<wsnt:Message><tt:Message UtcTime=\"%s\" PropertyOperation=\"Changed\">", now);
    fprintf(f, "<tt:Source><tt:SimpleItem Name=\"%s\" Value=\"%s\"></tt:SimpleItem></tt:Source>", names.sourceName,
            item);
    fprintf(f, "<tt:Data><tt:SimpleItem Name=\"%s\" Value=\"%s\"></tt:SimpleItem></tt:Data>", names.dataName, value);
    fprintf(f, "</tt:Message></wsnt:Message></wsnt:NotificationMessage>\n");
}

int main(int argc, char** argv)
{
    if (argc < 3)
        return usage();
    EventKind kind;
    int number = 0, stateWord;
    const char* state = argv[2];
    if (strcmp(argv[1], "motion") == 0 && argc == 3) {
        kind = EVENT_MOTION;
        stateWord = MOTION_WORD;
    } else if (strcmp(argv[1], "tamper") == 0 && argc == 3) {
        kind = EVENT_TAMPERING;
        stateWord = TAMPERING_WORD;
    } else if (strcmp(argv[1], "input") == 0 && argc == 4) {
        number = atoi(argv[2]);
        if (number < 1 || number > 4)
            return usage();
        kind = EVENT_INPUT;
        stateWord = INPUT_WORD_1 + number - 1;
        state = argv[3];
    } else {
        return usage();
    }
    int on = strcmp(state, "on") == 0;
    if (!on && strcmp(state, "off") != 0)
        return usage();

    int id;
    G_shared_memory = (int*)getShareMemory(&id, ONVIF_SHM_KEY_FILE, ONVIF_SHM_WORDS * 4);
    if (!G_shared_memory) {
        fprintf(stderr, "sim-event: no device-state segment for this root\n");
        return 1;
    }
    setShmWord(stateWord, on ? 1 : 0);

    char now[32];
    time_t t = time(0);
    strftime(now, sizeof now, "%Y-%m-%dT%H:%M:%SZ", gmtime(&t));
    EventNames names = eventNames(kind);
    // Pull points only: push subscribers would need a delivery to their own
    // address, which the simulated camera never makes.
    setShmWord(EVENT_FILE_BUSY_WORD, 1);
    for (int k = 0; k < SUBSCRIPTION_SLOTS; ++k) {
        const int* slot = subscriptionSlot(k);
        if (slot[SLOT_STATE] != SLOT_PULL && slot[SLOT_STATE] != SLOT_PULL_SYNC)
            continue;
        int filter = slot[SLOT_FILTER];
        const char* topic = filterTakes(filter, kind) ? names.topic
                            : kind == EVENT_MOTION && filterTakes(filter, EVENT_ANALYTICS_MOTION)
                                ? eventNames(EVENT_ANALYTICS_MOTION).topic
                                : 0;
        if (!topic)
            continue;
        char path[64];
        eventFilePath(slot[SLOT_NUMBER], path, sizeof path);
        FILE* f = fopenRoot(path, "a");
        if (!f)
            continue;
        appendMessage(f, names, topic, number, on ? "true" : "false", now);
        fclose(f);
    }
    setShmWord(EVENT_FILE_BUSY_WORD, 0);
    shmdt(G_shared_memory);
    return 0;
}
