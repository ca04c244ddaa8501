// sim-event: the core of the simulated camera's event process (tools/sim/event
// wraps it): sets the state word of one event in the device-state segment and
// appends a Changed notification to the event file of every pull point whose
// filter takes it, named as the service names its initial states. In the
// ONVIF mode it writes the standard's topics and values, ends subscriptions
// past their term, and delivers a Notify to every push subscriber whose
// filter takes the event (loopback consumers only), led by the initial states
// a new subscription or a synchronization point asked for.
//   sim-event motion|tamper on|off
//   sim-event input N on|off          (N = 1 to 4)
//   sim-event sync                    (only the initial states push subscribers are owed)
//   sim-event watch                   (sync four times a second until the segment is removed)
#include "events/events.h"
#include "state/config.h"
#include "state/paths.h"
#include "state/mode.h"
#include "state/shm.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/shm.h>
#include <time.h>

static int usage()
{
    fprintf(stderr, "usage: sim-event motion|tamper on|off | sim-event input N on|off | sim-event sync|watch\n");
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

// A consumer that has not answered by then is given up.
#define DELIVERY_SECONDS 3

// The consumer's loopback address and path from "http://host[:port]/path";
// 0 for any other address.
static int loopbackConsumer(const char* address, struct sockaddr_in* to, char* path, size_t n)
{
    char host[64] = "";
    int port = 80;
    const char* p = strncmp(address, "http://", 7) == 0 ? address + 7 : 0;
    if (!p)
        return 0;
    size_t hostLength = strcspn(p, ":/");
    if (hostLength == 0 || hostLength >= sizeof host)
        return 0;
    memcpy(host, p, hostLength);
    p += hostLength;
    if (*p == ':') {
        port = atoi(p + 1);
        p += 1 + strspn(p + 1, "0123456789");
    }
    snprintf(path, n, "%s", *p == '/' ? p : "/");
    memset(to, 0, sizeof *to);
    to->sin_family = AF_INET;
    to->sin_port = htons((unsigned short)port);
    if (strcmp(host, "localhost") == 0)
        snprintf(host, sizeof host, "127.0.0.1");
    if (port <= 0 || port > 65535 || inet_pton(AF_INET, host, &to->sin_addr) != 1)
        return 0;
    return (ntohl(to->sin_addr.s_addr) >> 24) == 127;
}

// A child process by the bare system call, 0 in the child. The ARM C
// library's fork() kills its child at once under qemu-arm (a program that
// only forks does the same; a static one or the bare call does not), and the
// delivery child needs none of fork()'s bookkeeping: this program has one
// thread, and the child ends with _exit without raising a signal itself.
static pid_t childProcess()
{
    return (pid_t)syscall(SYS_clone, SIGCHLD, 0, 0, 0, 0);
}

// One Notify as an HTTP/1.1 POST, in a process of its own so that a slow
// consumer holds up nobody; the answer is read and dropped.
static void deliverNotify(const char* consumer, const char* message)
{
    struct sockaddr_in to;
    char path[256];
    if (!loopbackConsumer(consumer, &to, path, sizeof path))
        return;
    if (childProcess() != 0)
        return;
    int devnull = open("/dev/null", O_RDWR);
    dup2(devnull, 0);
    dup2(devnull, 1);
    dup2(devnull, 2);
    alarm(DELIVERY_SECONDS);
    static char body[16384], request[17408];
    int bodyLength = snprintf(body, sizeof body,
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<SOAP-ENV:Envelope "
        "xmlns:SOAP-ENV=\"http://www.w3.org/2003/05/soap-envelope\" xmlns:wsa5=\"http://www.w3.org/2005/08/addressing\" "
        "xmlns:wsnt=\"http://docs.oasis-open.org/wsn/b-2\" xmlns:tns1=\"http://www.onvif.org/ver10/topics\" "
        "xmlns:tt=\"http://www.onvif.org/ver10/schema\"><SOAP-ENV:Header><wsa5:Action>"
        "http://docs.oasis-open.org/wsn/bw-2/NotificationConsumer/Notify</wsa5:Action></SOAP-ENV:Header>"
        "<SOAP-ENV:Body><wsnt:Notify>%s</wsnt:Notify></SOAP-ENV:Body></SOAP-ENV:Envelope>", message);
    int length = snprintf(request, sizeof request,
        "POST %s HTTP/1.1\r\nHost: %s:%d\r\nContent-Type: application/soap+xml; charset=utf-8; "
        "action=\"http://docs.oasis-open.org/wsn/bw-2/NotificationConsumer/Notify\"\r\nContent-Length: %d\r\n"
        "Connection: close\r\n\r\n%s", path, inet_ntoa(to.sin_addr), ntohs(to.sin_port), bodyLength, body);
    int s = socket(AF_INET, SOCK_STREAM, 0);
    if (bodyLength > 0 && (size_t)bodyLength < sizeof body && length > 0 && (size_t)length < sizeof request && s >= 0 &&
        connect(s, (struct sockaddr*)&to, sizeof to) == 0 && write(s, request, length) == length) {
        char answer[512];
        while (read(s, answer, sizeof answer) > 0) {}
    }
    _exit(0);
}

// The initial states a push subscription is owed, as the notifications its
// filter takes, one after another.
static void owedInitialStates(const int* slot, const char* now, char* out, size_t n)
{
    static char states[8192];
    standardInitialStates(slot[SLOT_FILTER], now, states, sizeof states);
    size_t used = 0;
    out[0] = 0;
    for (char* line = strtok(states, "\n"); line; line = strtok(0, "\n")) {
        size_t length = strlen(line);
        if (used + length < n && subscriptionTakes(slot[SLOT_NUMBER], line)) {
            memcpy(out + used, line, length + 1);
            used += length;
        }
    }
}

// A push subscription's slot, once whole: Subscribe writes its number and
// term after its state, and a slot still being claimed waits for the next round.
static int pushSlot(const int* slot, int k)
{
    return (slot[SLOT_STATE] == SLOT_PUSH || slot[SLOT_STATE] == SLOT_PUSH_SYNC) && slot[SLOT_NUMBER] == k + 1 &&
           slot[SLOT_TERMINATION] != 0;
}

// The initial states owed to each push subscription marked by Subscribe or
// SetSynchronizationPoint, taken (the mark cleared) before the event changes
// the state they report.
static char owed[SUBSCRIPTION_SLOTS][6144];

static void takeOwedInitialStates(const char* now)
{
    for (int k = 0; k < SUBSCRIPTION_SLOTS; ++k) {
        int* slot = subscriptionSlot(k);
        owed[k][0] = 0;
        // Taken in one step: the watch and an event's run never both take
        // a mark, and a slot freed meanwhile stays free.
        if (pushSlot(slot, k) && __sync_bool_compare_and_swap(&slot[SLOT_STATE], SLOT_PUSH_SYNC, SLOT_PUSH))
            owedInitialStates(slot, now, owed[k], sizeof owed[k]);
    }
}

// Each push subscriber gets its owed initial states, then the event if its
// filter takes it, in one Notify so that they arrive in that order (no
// message: the initial states alone).
static void notifySubscribers(int kind, const char* message)
{
    signal(SIGCHLD, SIG_IGN);
    static char notify[sizeof owed[0] + 2048];
    for (int k = 0; k < SUBSCRIPTION_SLOTS; ++k) {
        const int* slot = subscriptionSlot(k);
        if (!pushSlot(slot, k))
            continue;
        int takes = message[0] && filterTakes(slot[SLOT_FILTER], (EventKind)kind) &&
                    subscriptionTakes(slot[SLOT_NUMBER], message);
        int length = snprintf(notify, sizeof notify, "%s%s", owed[k], takes ? message : "");
        if (length <= 0 || (size_t)length >= sizeof notify)
            continue;
        char path[64], line[256], consumer[256] = "";
        pushRecordPath(slot[SLOT_NUMBER], path, sizeof path);
        FILE* f = fopenRoot(path, "r");
        if (!f)
            continue;
        while (fgets(line, sizeof line, f))
            if (sscanf(line, "consumer_address=%255s", consumer) == 1)
                break;
        fclose(f);
        deliverNotify(consumer, notify);
    }
}

static void utcNow(char* out, size_t n)
{
    time_t t = time(0);
    strftime(out, n, "%Y-%m-%dT%H:%M:%SZ", gmtime(&t));
}

// One round without an event: the initial states owed go out. Terms are
// left to the requests and the events, which end them before they look.
static void deliverOwedInitialStates()
{
    char now[32];
    if (!onvifMode())
        return;
    utcNow(now, sizeof now);
    takeOwedInitialStates(now);
    notifySubscribers(-1, "");
}

// The event process's idle loop: a round every quarter second, until the
// camera removes the segment.
static void watch(int id)
{
    struct shmid_ds segment;
    while (shmctl(id, IPC_STAT, &segment) == 0 && !(segment.shm_perm.mode & SHM_DEST)) {
        // The mode may change while the camera runs.
        forgetMode();
        deliverOwedInitialStates();
        usleep(250000);
    }
}

static int attachSegment(int* id)
{
    G_shared_memory = (int*)getShareMemory(id, ONVIF_SHM_KEY_FILE, ONVIF_SHM_WORDS * 4);
    if (G_shared_memory)
        return 1;
    fprintf(stderr, "sim-event: no device-state segment for this root\n");
    return 0;
}

int main(int argc, char** argv)
{
    int id;
    if (argc == 2 && (strcmp(argv[1], "sync") == 0 || strcmp(argv[1], "watch") == 0)) {
        if (!attachSegment(&id))
            return 1;
        if (strcmp(argv[1], "watch") == 0)
            watch(id);
        else
            deliverOwedInitialStates();
        shmdt(G_shared_memory);
        return 0;
    }
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
    if (!attachSegment(&id))
        return 1;

    char now[32];
    utcNow(now, sizeof now);
    int standard = onvifMode();
    if (standard) {
        endExpiredSubscriptions();
        takeOwedInitialStates(now);
    }
    setShmWord(stateWord, on ? 1 : 0);

    EventNames names = eventNames(kind);
    char item[32], message[2048] = "";
    if (standard) {
        eventSourceValue(names, number, item, sizeof item);
        printNotification(message, sizeof message, names.topic, now, "Changed", names.sourceName, item,
                          names.dataName, eventValue(kind, on));
    }
    // The event files are the pull points'; push subscribers get theirs below.
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
        if (standard) {
            if (message[0])
                fprintf(f, "%s\n", message);
        } else {
            appendMessage(f, names, topic, number, on ? "true" : "false", now);
        }
        fclose(f);
    }
    setShmWord(EVENT_FILE_BUSY_WORD, 0);
    if (standard)
        notifySubscribers(kind, message);
    shmdt(G_shared_memory);
    return 0;
}
