// Settings files: the reading pattern, the line reader and safe rewrites.
#include "state/config.h"
#include "state/command.h"
#include "state/paths.h"
#include "state/storelock.h"
#include "state/shm.h"

#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

void (*G_sleepHook)(int ms);

void sleepMs(int ms)
{
    if (G_sleepHook)
        return G_sleepHook(ms);
    struct timespec ts;
    ts.tv_sec = ms / 1000;
    ts.tv_nsec = (long)(ms % 1000) * 1000000L;
    while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {}
}

FILE* openSettingsFile(const char* path, const char* macro, const char* func, int waitForFile)
{
    if (shmWord(WS_MSG_NUM) != 0)
        sleepMs(3000);
    FILE* f;
    while ((f = fopenRoot(path, "r")) == 0) {
        if (!waitForFile) {
            logServiceError(func, "%s missing", macro);
            return 0;
        }
        if (sleepOutsideStoreLock(2000) != 0)
            return 0;
        logServiceError(func, "%s missing", macro);
        logServiceError(func, "*(G_shared_memory + WS_MSG_NUM)=%d", shmWord(WS_MSG_NUM));
    }
    sleepMs(500);
    return f;
}

char* findONVIFConfigurationFile(FILE* f, const char* fmt, char* dest, int len)
{
    char line[512];
    char value[256];
    memset(line, 0, sizeof line);
    memset(value, 0, sizeof value);
    if (f && fgets(line, sizeof line, f)) {
        // Scan with a width the value area can hold, whatever the format says.
        const char* conv = strchr(fmt, '%');
        if (conv) {
            size_t keyLen = (size_t)(conv - fmt);
            if (strncmp(line, fmt, keyLen) == 0) {
                const char* v = line + keyLen;
                int rest = strncmp(conv, "%[^\n]", 5) == 0;
                size_t i = 0;
                if (!rest)
                    while (*v == ' ' || *v == '\t') ++v;
                while (v[i] && v[i] != '\n' && i < sizeof value - 1 &&
                       (rest || (v[i] != ' ' && v[i] != '\t' && v[i] != '\r')))
                    { value[i] = v[i]; ++i; }
            }
        }
    }
    if (len > 0) {
        strncpy(dest, value, (size_t)len);
        dest[len - 1] = 0;
    }
    return dest;
}

int scanSettingLine(const char* line, const char* key, char* dest, int len, int restOfLine)
{
    const char* at = strstr(line, key);
    if (!at || len <= 0)
        return 0;
    const char* v = at + strlen(key);
    int i = 0;
    if (!restOfLine)
        while (*v == ' ' || *v == '\t') ++v;
    while (v[i] && v[i] != '\n' && i < len - 1 &&
           (restOfLine || (v[i] != ' ' && v[i] != '\t' && v[i] != '\r'))) {
        dest[i] = v[i];
        ++i;
    }
    dest[i] = 0;
    return 1;
}

// dir + fileName when the name is one a request token may form; 0 otherwise.
static const char* storePath(const char* dir, const char* fileName, char* path, size_t n)
{
    if (!isSafeFileToken(fileName) || (size_t)snprintf(path, n, "%s%s", dir, fileName) >= n)
        return 0;
    return path;
}

FILE* openStoreFile(const char* dir, const char* fileName)
{
    char path[512];
    return storePath(dir, fileName, path, sizeof path) ? fopenRoot(path, "r") : 0;
}

int openStoreLines(SettingsLines* r, const char* dir, const char* fileName)
{
    char path[512];
    r->fd = -1;
    return storePath(dir, fileName, path, sizeof path) && openSettingsLines(r, path);
}

int openSettingsLines(SettingsLines* r, const char* path)
{
    char real[512];
    resolvePath(path, real, sizeof real);
    r->fd = real[0] ? open(real, O_RDONLY | O_CLOEXEC) : -1;
    r->length = r->position = 0;
    r->endedAt = (size_t)-1;
    return r->fd >= 0;
}

// Reads more after what the block holds, moving an unfinished line to its
// start first; 0 at the end of the file.
static int readMoreLines(SettingsLines* r)
{
    if (r->position > 0) {
        memmove(r->block, r->block + r->position, r->length - r->position);
        r->length -= r->position;
        r->position = 0;
    }
    ssize_t got;
    do
        got = read(r->fd, r->block + r->length, sizeof r->block - 1 - r->length);
    while (got < 0 && errno == EINTR);
    if (got <= 0)
        return 0;
    r->length += (size_t)got;
    return 1;
}

char* nextSettingsLine(SettingsLines* r, size_t n)
{
    if (r->endedAt != (size_t)-1)
        r->block[r->endedAt] = r->saved;
    r->endedAt = (size_t)-1;
    if (n < 2 || n > 1024)
        return 0;
    size_t piece = n - 1, end;
    for (;;) {
        size_t have = r->length - r->position;
        const char* start = r->block + r->position;
        const char* lineEnd = (const char*)memchr(start, '\n', have < piece ? have : piece);
        if (lineEnd) {
            end = (size_t)(lineEnd - r->block) + 1;
            break;
        }
        if (have >= piece) {
            end = r->position + piece;
            break;
        }
        if (!readMoreLines(r)) {
            end = r->length;
            break;
        }
    }
    if (end == r->position)
        return 0;
    char* line = r->block + r->position;
    r->saved = r->block[end];
    r->endedAt = end;
    r->block[end] = 0;
    r->position = end;
    return line;
}

void closeSettingsLines(SettingsLines* r)
{
    if (r->fd >= 0)
        close(r->fd);
    r->fd = -1;
}

int readSettingValue(const char* path, const char* key, char* out, size_t n)
{
    SettingsLines r;
    if (!openSettingsLines(&r, path))
        return 0;
    int found = 0;
    size_t keyLength = strlen(key);
    while (char* line = found ? 0 : nextSettingsLine(&r, 512))
        found = strncmp(line, key, keyLength) == 0 && scanSettingLine(line, key, out, (int)n, 0);
    closeSettingsLines(&r);
    return found;
}

void copyLineAsFormatted(const char* line, FILE* out)
{
    for (const char* p = line; *p; ++p) {
        fputc(*p, out);
        if (p[0] == '%' && p[1] == '%')
            ++p;
    }
}

// Storage that cannot sync (EINVAL, ENOTSUP) is taken as synced; any other
// failure means the bytes may not be on it.
static int syncDescriptor(int fd)
{
    if (fsync(fd) == 0)
        return 0;
    if (errno != EINVAL && errno != ENOTSUP)
        return -1;
    return fdatasync(fd) == 0 || errno == EINVAL || errno == ENOTSUP ? 0 : -1;
}

// A write, flush, sync or close that failed leaves a work copy that may not
// hold what was written: it must never replace the file.
static int syncAndClose(FILE* f)
{
    int bad = fflush(f) != 0 || ferror(f) || syncDescriptor(fileno(f)) != 0;
    bad |= fclose(f) != 0;
    return bad ? -1 : 0;
}

// The rename is only kept over a power cut once the directory that holds
// the name is synced too.
static int syncDirectoryOf(const char* path)
{
    char dir[512];
    const char* slash = strrchr(path, '/');
    size_t length = slash ? (size_t)(slash - path) : 0;
    if (length == 0 || length >= sizeof dir)
        return 0;
    memcpy(dir, path, length);
    dir[length] = 0;
    int fd = open(dir, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return -1;
    int rc = syncDescriptor(fd);
    close(fd);
    return rc;
}

// Opens a temporary file beside target; name receives its path.
static FILE* openWorkCopy(const char* target, char* name, size_t n, mode_t mode)
{
    if ((size_t)snprintf(name, n, "%s.XXXXXX", target) >= n)
        return 0;
    int fd = mkstemp(name);
    if (fd < 0)
        return 0;
    fchmod(fd, mode);
    FILE* f = fdopen(fd, "w");
    if (!f) {
        close(fd);
        unlink(name);
    }
    return f;
}

static void dropWorkCopy(FILE* work, const char* name)
{
    fclose(work);
    unlink(name);
}

// A failure once the rename is done leaves the new file in place, but it is
// still reported: the change may not survive a power cut.
static int commitWorkCopy(FILE* work, const char* name, const char* target)
{
    if (syncAndClose(work) != 0 || rename(name, target) != 0) {
        unlink(name);
        return WORK_COPY_FAILED;
    }
    return syncDirectoryOf(target) == 0 ? 0 : WORK_COPY_FAILED;
}

int rewriteFileThroughWorkCopy(const char* path, LineEditor edit, void* ctx)
{
    char real[512], workName[600];
    resolvePath(path, real, sizeof real);
    FILE* src = fopen(real, "r");
    if (!src)
        return -1;
    struct stat st;
    mode_t mode = fstat(fileno(src), &st) == 0 ? (st.st_mode & 07777) : 0644;
    FILE* work = openWorkCopy(real, workName, sizeof workName, mode);
    if (!work) {
        fclose(src);
        return WORK_COPY_FAILED;
    }
    char line[1024];
    // A line longer than the buffer is judged by its first piece; the rest
    // follows that piece's fate (copied, or dropped with a replaced line).
    int continuation = 0, replaced = 0;
    while (fgets(line, sizeof line, src)) {
        size_t len = strlen(line);
        int whole = len > 0 && line[len - 1] == '\n';
        if (!continuation)
            replaced = edit(line, work, ctx);
        if (replaced < 0)
            break;
        if (!replaced)
            fputs(line, work);
        continuation = !whole;
    }
    // A read that failed half-way would make the copy a cut file.
    int unread = ferror(src);
    fclose(src);
    if (replaced < 0 || edit(0, work, ctx) < 0) {
        dropWorkCopy(work, workName);
        return -2;
    }
    if (unread) {
        dropWorkCopy(work, workName);
        return WORK_COPY_FAILED;
    }
    return commitWorkCopy(work, workName, real);
}

int replaceFileContent(const char* path, const char* content)
{
    char real[512], workName[600];
    resolvePath(path, real, sizeof real);
    struct stat st;
    mode_t mode = stat(real, &st) == 0 ? (st.st_mode & 07777) : 0666;
    FILE* work = openWorkCopy(real, workName, sizeof workName, mode);
    if (!work)
        return WORK_COPY_FAILED;
    fputs(content, work);
    return commitWorkCopy(work, workName, real);
}

// Copies the rest of src into a new work copy of target (resolved) with the
// given mode and renames it over target; src is closed. -1 when it cannot.
static int replaceWithRestOf(FILE* src, const char* realTarget, mode_t mode)
{
    char workName[600];
    FILE* work = openWorkCopy(realTarget, workName, sizeof workName, mode);
    if (!work) {
        fclose(src);
        return WORK_COPY_FAILED;
    }
    char buffer[4096];
    size_t n;
    while ((n = fread(buffer, 1, sizeof buffer, src)) > 0)
        fwrite(buffer, 1, n, work);
    int unread = ferror(src);
    fclose(src);
    if (unread) {
        dropWorkCopy(work, workName);
        return WORK_COPY_FAILED;
    }
    return commitWorkCopy(work, workName, realTarget);
}

int keepFileTail(const char* path, long offset)
{
    char real[512];
    FILE* src = fopen(resolvePath(path, real, sizeof real), "r");
    if (!src)
        return -1;
    struct stat st;
    mode_t mode = fstat(fileno(src), &st) == 0 ? (st.st_mode & 07777) : 0644;
    if (fseek(src, offset, SEEK_SET) != 0) {
        fclose(src);
        return -1;
    }
    return replaceWithRestOf(src, real, mode);
}

int copyFileThroughWorkCopy(const char* source, const char* target)
{
    char realSource[512], realTarget[512];
    FILE* src = fopen(resolvePath(source, realSource, sizeof realSource), "r");
    if (!src)
        return -1;
    resolvePath(target, realTarget, sizeof realTarget);
    struct stat st;
    mode_t mode = stat(realTarget, &st) == 0 ? (st.st_mode & 07777) : 0644;
    return replaceWithRestOf(src, realTarget, mode);
}

struct KeyEdit {
    const char* key;
    const char* value;
};

static int replaceKeyLine(const char* line, FILE* out, void* ctx)
{
    KeyEdit* e = (KeyEdit*)ctx;
    if (!line || !strstr(line, e->key))
        return 0;
    fputs(e->key, out);
    fputs(e->value, out);
    fputc('\n', out);
    return 1;
}

int namesKeyOfFile(const char* path, const char* text)
{
    FILE* f = fopenRoot(path, "r");
    if (!f)
        return 0;
    char line[1024], key[1024];
    int named = 0, continuation = 0;
    while (!named && fgets(line, sizeof line, f)) {
        const char* equals = continuation ? 0 : strchr(line, '=');
        size_t len = strlen(line);
        continuation = len > 0 && line[len - 1] != '\n';
        if (!equals || equals == line)
            continue;
        size_t keyLength = (size_t)(equals - line) + 1;  // with its '='
        memcpy(key, line, keyLength);
        key[keyLength] = 0;
        named = strstr(text, key) != 0;
    }
    fclose(f);
    return named;
}

int rewriteKeyInFile(const char* path, const char* key, const char* value)
{
    if (namesKeyOfFile(path, value))
        return -3;
    KeyEdit e = {key, value};
    return rewriteFileThroughWorkCopy(path, replaceKeyLine, &e);
}

int Update_ONVIF_CONF_FILE(const char* key, const char* value)
{
    return rewriteKeyInFile(ONVIF_CONF_FILE, key, value);
}

// Appends one line to a log file by running /bin/echo through the shell, as
// the camera's other tools expect; the message is single-quoted and line
// breaks become spaces, so it lands as one line and nothing in it runs.
__attribute__((format(printf, 2, 0)))
static void echoToLog(const char* logPath, const char* fmt, va_list ap)
{
    char msg[512];
    vsnprintf(msg, sizeof msg, fmt, ap);
    for (char* p = msg; *p; ++p)
        if (*p == '\n' || *p == '\r')
            *p = ' ';
    char quotedMsg[2100], quotedLog[600], cmd[2800];
    if (!shellQuote(msg, quotedMsg, sizeof quotedMsg) ||
        !shellQuotedPath(logPath, quotedLog, sizeof quotedLog))
        return;
    snprintf(cmd, sizeof cmd, "/bin/echo %s >> %s", quotedMsg, quotedLog);
    runShellCommand(cmd);
}

int log_message_to_onvifErrorFile(int flag, const char* fmt, ...)
{
    if (flag) {
        va_list ap;
        va_start(ap, fmt);
        echoToLog(ONVIF_ERROR_LOG, fmt, ap);
        va_end(ap);
    }
    return 1;
}


void logServiceError(const char* func, const char* fmt, ...)
{
    char msg[512];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(msg, sizeof msg, fmt, ap);
    va_end(ap);
    log_message_to_onvifErrorFile(1, "onvifService:%s:%s", func, msg);
}

int getch()
{
    struct termios oldt, newt;
    tcgetattr(STDIN_FILENO, &oldt);
    newt = oldt;
    newt.c_lflag &= ~(tcflag_t)(ICANON | ECHO);
    tcsetattr(STDIN_FILENO, TCSANOW, &newt);
    int c = getchar();
    tcsetattr(STDIN_FILENO, TCSANOW, &oldt);
    return c;
}

int splitFields(char* line, char sep, char** fields, int max)
{
    line[strcspn(line, "\r\n")] = 0;
    int n = 0;
    char* p = line;
    while (n < max) {
        fields[n++] = p;
        char* at = n < max ? strchr(p, sep) : 0;
        if (!at)
            break;
        *at = 0;
        p = at + 1;
    }
    return n;
}
