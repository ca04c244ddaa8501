// Exclusive flock locks on lock files beside the store. The lock dies with
// the process, so a request that crashes or is killed never leaves it held.
#include "state/storelock.h"
#include "state/config.h"
#include "state/paths.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <sys/file.h>
#include <unistd.h>

// A writer holds the lock for a few seconds at most (the reading pattern's
// sleeps included); a minute means something is stuck, and the request is
// better refused than left waiting for ever.
#define LOCK_WAIT_SECONDS 60

static int storeLockFd = -1;

static void interruptWait(int) {}

int lockFileExclusive(const char* path)
{
    char real[512];
    resolvePath(path, real, sizeof real);
    int fd = open(real, O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (fd < 0)
        return errno == ENOENT ? -2 : -1;
    if (flock(fd, LOCK_EX | LOCK_NB) == 0)
        return fd;
    // Wait with an alarm so that the wait has an end; flock is not restarted
    // after the alarm's signal.
    struct sigaction onAlarm, previous;
    memset(&onAlarm, 0, sizeof onAlarm);
    onAlarm.sa_handler = interruptWait;
    sigemptyset(&onAlarm.sa_mask);
    sigaction(SIGALRM, &onAlarm, &previous);
    unsigned pending = alarm(LOCK_WAIT_SECONDS);
    int rc;
    unsigned left;
    while ((rc = flock(fd, LOCK_EX)) != 0 && errno == EINTR && (left = alarm(0)) != 0)
        alarm(left);  // another signal than the alarm: keep waiting
    alarm(0);
    sigaction(SIGALRM, &previous, 0);
    if (pending)
        alarm(pending);
    if (rc != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

void unlockFile(int fd)
{
    if (fd >= 0)
        close(fd);
}

int lockStore()
{
    int fd = lockFileExclusive(STORE_LOCK_FILE);
    if (fd == -1)
        return -1;
    storeLockFd = fd;
    return 0;
}

void unlockStore()
{
    unlockFile(storeLockFd);
    storeLockFd = -1;
}

int sleepOutsideStoreLock(int ms)
{
    int held = storeLockFd >= 0;
    if (held)
        unlockStore();
    sleepMs(ms);
    return held ? lockStore() : 0;
}
