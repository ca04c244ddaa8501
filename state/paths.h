// Where the program's absolute paths really are (ONVIF_ROOT for the simulated
// camera and tests), and quoting of text that goes into shell commands.
#ifndef STATE_PATHS_H
#define STATE_PATHS_H

#include <stddef.h>
#include <stdio.h>

// Writes the real location of an absolute path into out (ONVIF_ROOT + path
// when the variable is set and non-empty, else the path itself); an empty
// text when it does not fit, so that no shortened path is ever opened.
const char* resolvePath(const char* path, char* out, size_t n);

// snprintf for paths, command pieces and settings lines: 1 when the whole
// text fit; otherwise out is emptied (so no shortened name is ever used)
// and the result is 0.
int formatChecked(char* out, size_t n, const char* fmt, ...) __attribute__((format(printf, 3, 4)));

// fopen() on the resolved path.
FILE* fopenRoot(const char* path, const char* mode);

// Writes text between single quotes so that a POSIX shell takes it as one
// literal word whatever it holds. Returns 0 when out is too small.
int shellQuote(const char* text, char* out, size_t n);

// The resolved path, quoted for a shell command.
int shellQuotedPath(const char* path, char* out, size_t n);

// A token from a request may name a file only if it is made of letters,
// digits, '-', '_' and '.', is not "." or "..", and holds no "..".
int isSafeFileToken(const char* token);

#endif
