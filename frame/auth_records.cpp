// The used-nonce and failed-attempt records: open-addressed slots in two
// fixed-size files, read and written slot by slot under flock.
#include "frame/auth_records.h"
#include "frame/comcrypto.h"
#include "state/paths.h"

#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/file.h>
#include <unistd.h>

// Opens and locks a record file, creating it empty (all slots free) when missing.
static int openLocked(const char* path)
{
    char real[512];
    if (!resolvePath(path, real, sizeof real)[0])
        return -1;
    int fd = open(real, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0)
        return -1;
    if (flock(fd, LOCK_EX) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

static void closeLocked(int fd)
{
    flock(fd, LOCK_UN);
    close(fd);
}

static void sha1Of(const char* kind, const char* text, size_t length, unsigned char out[20])
{
    sha1_ctx_t ctx;
    COM_sha1_begin(&ctx);
    COM_sha1_hash(kind, (unsigned)strlen(kind), &ctx);
    COM_sha1_hash(text, (unsigned)length, &ctx);
    COM_sha1_end(out, &ctx);
}

static unsigned firstSlot(const unsigned char* hash, unsigned slots)
{
    uint32_t h = (uint32_t)hash[16] << 24 | (uint32_t)hash[17] << 16 | (uint32_t)hash[18] << 8 | hash[19];
    return h % (slots - RECORD_PROBE + 1);
}

// Reads the probe window; slots past the file's end read as free.
template <class Slot>
static void readWindow(int fd, unsigned first, Slot* window)
{
    memset(window, 0, sizeof(Slot) * RECORD_PROBE);
    ssize_t got = pread(fd, window, sizeof(Slot) * RECORD_PROBE, (off_t)first * sizeof(Slot));
    (void)got;
}

template <class Slot>
static int writeSlot(int fd, unsigned index, const Slot& slot)
{
    return pwrite(fd, &slot, sizeof slot, (off_t)index * sizeof slot) == (ssize_t)sizeof slot ? 0 : -1;
}

NonceClaim claimNonce(const char* kind, const char* text, size_t length, time_t expires, time_t now)
{
    unsigned char hash[20];
    sha1Of(kind, text, length, hash);
    int fd = openLocked(USED_NONCE_FILE);
    if (fd < 0)
        return NONCE_NO_ROOM;
    unsigned first = firstSlot(hash, USED_NONCE_SLOTS);
    UsedNonce window[RECORD_PROBE];
    readWindow(fd, first, window);
    int freeSlot = -1;
    NonceClaim result = NONCE_NO_ROOM;
    for (int i = 0; i < RECORD_PROBE; ++i) {
        bool live = window[i].expires > (uint32_t)now;
        if (live && memcmp(window[i].key, hash, sizeof window[i].key) == 0) {
            result = NONCE_REPLAYED;
            break;
        }
        if (!live && freeSlot < 0)
            freeSlot = i;
    }
    if (result != NONCE_REPLAYED && freeSlot >= 0) {
        UsedNonce slot;
        memcpy(slot.key, hash, sizeof slot.key);
        slot.expires = (uint32_t)expires;
        result = writeSlot(fd, first + freeSlot, slot) == 0 ? NONCE_FIRST_USE : NONCE_NO_ROOM;
    }
    closeLocked(fd);
    return result;
}

// The address's probe window of the failure record, read under the lock the
// caller closes; fd is -1 when the record cannot be had. Returns the slot
// that holds the address, -1 for none.
struct FailureWindow {
    int fd;
    unsigned first;
    AuthFailures slots[RECORD_PROBE];
};

static int openFailureWindow(const char* address, FailureWindow* w)
{
    w->fd = openLocked(AUTH_FAILURE_FILE);
    if (w->fd < 0)
        return -1;
    unsigned char hash[20];
    sha1Of("A", address, strlen(address), hash);
    w->first = firstSlot(hash, AUTH_FAILURE_SLOTS);
    readWindow(w->fd, w->first, w->slots);
    for (int i = 0; i < RECORD_PROBE; ++i)
        if (strncmp(w->slots[i].address, address, sizeof w->slots[i].address) == 0)
            return i;
    return -1;
}

int lockedOut(const char* address, int limit, int window, time_t now)
{
    FailureWindow w;
    int i = openFailureWindow(address, &w);
    if (w.fd < 0)
        return 0;
    closeLocked(w.fd);
    return i >= 0 && (int)w.slots[i].count >= limit && (long)now - (long)w.slots[i].last < window;
}

int countFailure(const char* address, int limit, int window, time_t now)
{
    FailureWindow w;
    int i = openFailureWindow(address, &w);
    if (w.fd < 0)
        return 0;
    AuthFailures* slots = w.slots;
    if (i < 0) {
        // A free or quiet slot, else the one quiet longest: the file stays
        // bounded however many addresses try.
        i = 0;
        for (int k = 0; k < RECORD_PROBE; ++k)
            if (slots[k].last < slots[i].last)
                i = k;
        memset(&slots[i], 0, sizeof slots[i]);
        snprintf(slots[i].address, sizeof slots[i].address, "%s", address);
    }
    AuthFailures& s = slots[i];
    if ((long)now - (long)s.last >= window) {
        s.count = 0;
        s.logged = 0;
    }
    ++s.count;
    s.last = (uint32_t)now;
    int locksNow = (int)s.count >= limit && !s.logged;
    if (locksNow)
        s.logged = 1;
    writeSlot(w.fd, w.first + i, s);
    closeLocked(w.fd);
    return locksNow;
}
