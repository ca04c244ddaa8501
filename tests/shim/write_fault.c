// A write-fault injector loaded with LD_PRELOAD into device_service: the n-th
// open for writing, mkstemp, write, fsync or rename of a file under a root
// fails with a chosen errno (or every one from the n-th on: a full disk).
//
//   WRITE_FAULT_ROOT    only files under this directory count
//   WRITE_FAULT_AT      n, 1-based; 0 or unset injects nothing
//   WRITE_FAULT_ERRNO   ENOSPC (default), EIO or EROFS
//   WRITE_FAULT_ONWARD  1: every counted call from the n-th on fails
//   WRITE_FAULT_TALLY   file that receives the number of counted calls at exit
//   WRITE_FAULT_NO_WAIT 1: nanosleep returns at once (a test runs each writer
//                       dozens of times; the waits only slow it)
//
// Files opened through stdio go through a cookie stream whose writes come
// back here, since glibc's stdio writes with internal calls no preload sees.
// The variables are taken out of the environment at start, so the camera
// programs and the log's shell that the service runs see a healthy disk.
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#define MAX_FD 1024
#define MAX_STREAMS 64

static char faultRoot[512];
static size_t faultRootLength;
static long faultAt, counted;
static int faultErrno = ENOSPC, onward, noWait;
static char tallyPath[512];
static unsigned char trackedFd[MAX_FD];
static struct { FILE* stream; int fd; } streams[MAX_STREAMS];

#define REAL(name) static __typeof__(&name) real_##name; \
    if (!real_##name) real_##name = (__typeof__(&name))dlsym(RTLD_NEXT, #name)

static void copyEnv(const char* name, char* out, size_t n)
{
    const char* v = getenv(name);
    if (v && strlen(v) < n)
        strcpy(out, v);
}

__attribute__((constructor)) static void takeSettings(void)
{
    copyEnv("WRITE_FAULT_ROOT", faultRoot, sizeof faultRoot);
    faultRootLength = strlen(faultRoot);
    const char* at = getenv("WRITE_FAULT_AT");
    faultAt = at ? atol(at) : 0;
    const char* e = getenv("WRITE_FAULT_ERRNO");
    if (e && strcmp(e, "EIO") == 0)
        faultErrno = EIO;
    else if (e && strcmp(e, "EROFS") == 0)
        faultErrno = EROFS;
    const char* o = getenv("WRITE_FAULT_ONWARD");
    onward = o && strcmp(o, "1") == 0;
    copyEnv("WRITE_FAULT_TALLY", tallyPath, sizeof tallyPath);
    const char* w = getenv("WRITE_FAULT_NO_WAIT");
    noWait = w && strcmp(w, "1") == 0;
    const char* names[] = {"LD_PRELOAD", "WRITE_FAULT_ROOT", "WRITE_FAULT_AT", "WRITE_FAULT_ERRNO",
                           "WRITE_FAULT_ONWARD", "WRITE_FAULT_TALLY", "WRITE_FAULT_NO_WAIT"};
    for (size_t i = 0; i < sizeof names / sizeof *names; ++i)
        unsetenv(names[i]);
}

__attribute__((destructor)) static void writeTally(void)
{
    if (!tallyPath[0])
        return;
    REAL(open);
    int fd = real_open(tallyPath, O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0)
        return;
    char text[32];
    int n = snprintf(text, sizeof text, "%ld\n", counted);
    REAL(write);
    if (real_write(fd, text, (size_t)n) < 0) {}
    close(fd);
}

static int underRoot(const char* path)
{
    return faultRootLength && path && strncmp(path, faultRoot, faultRootLength) == 0 &&
           (path[faultRootLength] == '/' || path[faultRootLength] == 0);
}

static int tracked(int fd) { return fd >= 0 && fd < MAX_FD && trackedFd[fd]; }

static void track(int fd, int on)
{
    if (fd >= 0 && fd < MAX_FD)
        trackedFd[fd] = (unsigned char)on;
}

// Counts one call; 1 when it is to fail (errno is then set).
static int failsNow(void)
{
    ++counted;
    if (faultAt > 0 && (counted == faultAt || (onward && counted > faultAt))) {
        errno = faultErrno;
        return 1;
    }
    return 0;
}

static int writeIntent(int flags) { return (flags & (O_WRONLY | O_RDWR | O_CREAT | O_TRUNC | O_APPEND)) != 0; }

static int openCounted(const char* path, int flags, mode_t mode)
{
    REAL(open);
    int watch = underRoot(path) && (writeIntent(flags) || (flags & O_DIRECTORY));
    if (watch && writeIntent(flags) && failsNow())
        return -1;
    int fd = real_open(path, flags, mode);
    if (watch)
        track(fd, 1);
    return fd;
}

static mode_t modeArgument(int flags, va_list ap)
{
    return (flags & (O_CREAT | O_TMPFILE)) ? (mode_t)va_arg(ap, int) : 0;
}

int open(const char* path, int flags, ...)
{
    va_list ap;
    va_start(ap, flags);
    mode_t mode = modeArgument(flags, ap);
    va_end(ap);
    return openCounted(path, flags, mode);
}

int open64(const char* path, int flags, ...) __attribute__((alias("open")));

int nanosleep(const struct timespec* want, struct timespec* left)
{
    REAL(nanosleep);
    if (!noWait)
        return real_nanosleep(want, left);
    if (left)
        left->tv_sec = left->tv_nsec = 0;
    return 0;
}

int usleep(useconds_t us)
{
    REAL(usleep);
    return noWait ? 0 : real_usleep(us);
}

int close(int fd)
{
    REAL(close);
    track(fd, 0);
    return real_close(fd);
}

ssize_t write(int fd, const void* data, size_t n)
{
    REAL(write);
    if (tracked(fd) && failsNow())
        return -1;
    return real_write(fd, data, n);
}

int fsync(int fd)
{
    REAL(fsync);
    if (tracked(fd) && failsNow())
        return -1;
    return real_fsync(fd);
}

int fdatasync(int fd)
{
    REAL(fdatasync);
    if (tracked(fd) && failsNow())
        return -1;
    return real_fdatasync(fd);
}

int rename(const char* from, const char* to)
{
    REAL(rename);
    if ((underRoot(from) || underRoot(to)) && failsNow())
        return -1;
    return real_rename(from, to);
}

static int mkstempCounted(char* pattern, int flags)
{
    REAL(mkostemp);
    int watch = underRoot(pattern);
    if (watch && failsNow())
        return -1;
    int fd = real_mkostemp(pattern, flags);
    if (watch)
        track(fd, 1);
    return fd;
}

int mkstemp(char* pattern) { return mkstempCounted(pattern, 0); }
int mkstemp64(char* pattern) __attribute__((alias("mkstemp")));
int mkostemp(char* pattern, int flags) { return mkstempCounted(pattern, flags); }

// Cookie streams: stdio buffers, the writes land in write() above.
static ssize_t cookieRead(void* c, char* buf, size_t n) { return read((int)(long)c, buf, n); }

static ssize_t cookieWrite(void* c, const char* buf, size_t n)
{
    ssize_t w = write((int)(long)c, buf, n);
    return w < 0 ? -1 : w;
}

static int cookieSeek(void* c, off64_t* offset, int whence)
{
    off64_t at = lseek64((int)(long)c, *offset, whence);
    if (at < 0)
        return -1;
    *offset = at;
    return 0;
}

static int cookieClose(void* c)
{
    int fd = (int)(long)c;
    for (int i = 0; i < MAX_STREAMS; ++i)
        if (streams[i].stream && streams[i].fd == fd)
            streams[i].stream = 0;
    return close(fd);
}

static FILE* streamOn(int fd, const char* mode)
{
    cookie_io_functions_t io = {cookieRead, cookieWrite, cookieSeek, cookieClose};
    FILE* f = fopencookie((void*)(long)fd, mode, io);
    if (!f)
        return 0;
    for (int i = 0; i < MAX_STREAMS; ++i)
        if (!streams[i].stream) {
            streams[i].stream = f;
            streams[i].fd = fd;
            break;
        }
    return f;
}

static int modeFlags(const char* mode)
{
    int plus = strchr(mode, '+') != 0;
    if (mode[0] == 'w')
        return (plus ? O_RDWR : O_WRONLY) | O_CREAT | O_TRUNC;
    if (mode[0] == 'a')
        return (plus ? O_RDWR : O_WRONLY) | O_CREAT | O_APPEND;
    return plus ? O_RDWR : O_RDONLY;
}

static FILE* fopenCounted(const char* path, const char* mode)
{
    REAL(fopen);
    int flags = modeFlags(mode);
    if (!underRoot(path) || !writeIntent(flags))
        return real_fopen(path, mode);
    int fd = openCounted(path, flags | O_CLOEXEC, 0666);
    if (fd < 0)
        return 0;
    FILE* f = streamOn(fd, mode);
    if (!f)
        close(fd);
    return f;
}

FILE* fopen(const char* path, const char* mode) { return fopenCounted(path, mode); }
FILE* fopen64(const char* path, const char* mode) __attribute__((alias("fopen")));

FILE* fdopen(int fd, const char* mode)
{
    REAL(fdopen);
    if (!tracked(fd))
        return real_fdopen(fd, mode);
    return streamOn(fd, mode);
}

int fileno(FILE* f)
{
    REAL(fileno);
    for (int i = 0; i < MAX_STREAMS; ++i)
        if (streams[i].stream == f)
            return streams[i].fd;
    return real_fileno(f);
}
