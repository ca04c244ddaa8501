// Key=value settings files: the reading pattern every handler follows, the
// line reader, the one rewrite through a work copy, and the error log.
#ifndef STATE_CONFIG_H
#define STATE_CONFIG_H

#include <stdio.h>

#include "state/paths.h"

#define ONVIF_CONF_FILE "/tmp/onvif/onvif.conf"
#define ONVIF_CONF_WORK_FILE "/tmp/onvif/tmp/onvif.conf"
#define ONVIF_LODING_PROFILE_FILE "/tmp/onvif/Profiles.conf"
#define ONVIF_ERROR_LOG "/tmp/onvif_error"

// Opens a settings file for reading the way every reader does: waits 3 s
// while another process is rewriting the files (WS_MSG_NUM), and pauses half
// a second after the open. A missing file is logged as "<macro> missing" under
// func; with waitForFile it is retried every 2 s until it appears, otherwise
// the result is 0.
FILE* openSettingsFile(const char* path, const char* macro, const char* func, int waitForFile);

// Reads the next line of f and scans it with fmt (one %s-like conversion);
// a line that does not match gives an empty text. Returns dest.
char* findONVIFConfigurationFile(FILE* f, const char* fmt, char* dest, int len);

// Scans "key=value" for the given key (with its '='): one word, or the rest
// of the line with restOfLine. Returns 1 when the line holds the key.
int scanSettingLine(const char* line, const char* key, char* dest, int len, int restOfLine);

// Calls visit(line) for each line of an open settings file (a line keeps its
// '\n'; one longer than the buffer arrives in pieces), until visit returns
// false; closes the file. Each reader still matches lines its own way.
template <class Visit>
void forEachLine(FILE* f, Visit visit)
{
    char line[512];
    while (fgets(line, sizeof line, f))
        if (!visit(line))
            break;
    fclose(f);
}

// A settings file read line by line the way fgets gives lines, straight
// from read(2) and ended in place: a request opens a dozen small files, and a
// stdio stream's set-up, line scan and copy cost more than the rest.
struct SettingsLines {
    int fd;
    size_t length, position, endedAt;
    char saved;
    char block[4096 + 1];
};
// Opens path under the root; 0 when missing.
int openSettingsLines(SettingsLines* r, const char* path);
// The next line as fgets into a buffer of n bytes would give it (its '\n'
// kept, one longer than n - 1 in pieces), inside r and valid until the next
// call (the caller may write into it); 0 at the end. n is at most 1024.
char* nextSettingsLine(SettingsLines* r, size_t n);
void closeSettingsLines(SettingsLines* r);

// forEachLine on a file under the root; 0 (nothing visited) when missing.
template <class Visit>
int forEachSetting(const char* path, Visit visit)
{
    SettingsLines r;
    if (!openSettingsLines(&r, path))
        return 0;
    while (char* line = nextSettingsLine(&r, 512))
        if (!visit(line))
            break;
    closeSettingsLines(&r);
    return 1;
}

// Splits a line in place at each sep into at most max fields (the last
// takes the rest of the line, without its line end). Returns the count.
int splitFields(char* line, char sep, char** fields, int max);

// openStoreFile's check and file, read as settings lines; 0 when refused or missing.
int openStoreLines(SettingsLines* r, const char* dir, const char* fileName);

// Opens dir + fileName for reading when the name is one a request token may
// form (see isSafeFileToken); 0 otherwise or when the file is missing.
FILE* openStoreFile(const char* dir, const char* fileName);

// The one-word value of the first line starting with key ("Name=") in a
// key=value file; 1 when found.
int readSettingValue(const char* path, const char* key, char* out, size_t n);

// Called for each line of a file being rewritten (line keeps its '\n').
// Write the replacement into out and return 1, or return 0 to keep the line
// as it is, or return -1 to give the rewrite up (the file stays as it was).
// Called once more with line == 0 at the end, to append.
typedef int (*LineEditor)(const char* line, FILE* out, void* ctx);

// Copies a line the way the camera's tools pass a line through a formatter
// with no arguments: "%%" becomes "%", everything else stays as it is.
void copyLineAsFormatted(const char* line, FILE* out);

// The store could not take a change (a full or failing disk): the work copy
// was not made, not written whole or not synced, or the rename failed. The
// file is then unchanged, or renamed but not known to be durable.
#define WORK_COPY_FAILED -4

// Rewrites a file through a work copy in its own directory, flushed to
// storage and renamed over the file, with the directory synced after, so a
// concurrent reader sees the old or the new file, never half of one, and a
// power cut leaves one of the two. Returns 0, -1 when the file is missing,
// WORK_COPY_FAILED, or -2 when the editor gave the rewrite up.
int rewriteFileThroughWorkCopy(const char* path, LineEditor edit, void* ctx);

// Replaces target with a copy of source, the same safe way. Returns 0, -1
// when source is missing, or WORK_COPY_FAILED.
int copyFileThroughWorkCopy(const char* source, const char* target);

// Replaces a file with its own bytes from offset on, the same safe way.
// Returns 0, -1 or WORK_COPY_FAILED (the file is then unchanged).
int keepFileTail(const char* path, long offset);

// Replaces the whole content of a file the same safe way (creates it if
// needed). Returns 0 or WORK_COPY_FAILED.
int replaceFileContent(const char* path, const char* content);

// 1 when text holds a key of the key=value file at path followed by "=":
// readers find keys anywhere in a line, so such a stored value would read
// back as that other setting.
int namesKeyOfFile(const char* path, const char* text);

// Replaces every line of path that contains key (with its '=') by key+value.
// -3, with nothing written, when the value names a key of the file (above).
int rewriteKeyInFile(const char* path, const char* key, const char* value);

// rewriteKeyInFile on ONVIF_CONF_FILE.
int Update_ONVIF_CONF_FILE(const char* key, const char* value);

// Logger: one line appended to the error log through /bin/echo, with the
// message quoted so that nothing in it is ever run.
int log_message_to_onvifErrorFile(int flag, const char* fmt, ...)
    __attribute__((format(printf, 2, 3)));
// "onvifService:<func>:<message>" to the error log.
void logServiceError(const char* func, const char* fmt, ...)
    __attribute__((format(printf, 2, 3)));

// Sleeps for the given milliseconds.
void sleepMs(int ms);
// When set, sleepMs calls it instead of sleeping: the fuzz target runs
// thousands of requests a second through handlers that wait. 0 in the program.
extern void (*G_sleepHook)(int ms);

int getch();

#endif
