// The media profile store: the index of profiles, one key=value file per
// profile, the configuration list files and the use counts. Every handler
// that starts from a ProfileToken finds its profile here.
#ifndef STATE_PROFILES_H
#define STATE_PROFILES_H

#include <stddef.h>
#include <stdio.h>

#define ONVIF_DIR "/tmp/onvif/"
#define ONVIF_WEB_DIR "/usr/apache/htdocs/onvif/"
// The PTZ configurations a profile may bind.
#define ONVIF_PTZ_CONF ONVIF_WEB_DIR "PTZ.conf"
#define PROFILE_TOKEN_MAX 16
#define CONFIG_TOKEN_MAX 32

enum ProfileLookup { PROFILE_INDEX_MISSING = -1, PROFILE_NOT_FOUND = 0, PROFILE_FOUND = 1 };

// Looks the token up in the profile index. On PROFILE_FOUND, fileName holds
// "<token>.profile". A token longer than 16 characters or one that could
// name a file outside the store is never found.
int findProfile(const char* token, char* fileName, size_t n);

// Opens "/tmp/onvif/<fileName>" for reading (0 when missing).
FILE* openProfileFile(const char* fileName);

// Reads the value of key ("VideoEncoder=") from a profile file into out;
// returns 1 when the line was there.
int readProfileField(const char* fileName, const char* key, char* out, size_t n);

// Rewrites the key's line of a profile file with value, keeping every other
// line; oldValue receives the value it had. Returns 0, or -1 when the file is missing.
int rewriteProfileField(const char* fileName, const char* key, const char* value, char* oldValue, size_t n);

// 1 when fileName is a whole line of the list file; a missing list file is
// logged as "onvifService:[<func>]:<listMacro> missing" and counts as not listed.
int isListedConfiguration(const char* listFile, const char* fileName, const char* func, const char* listMacro);

// Adds or subtracts one on the "UseCount=" line of a configuration file in
// /tmp/onvif/ (directory selector 0) or /usr/apache/htdocs/onvif/ (any other).
int Update_UseCount_withOneStep(const char* config_name, int add_or_minus, int directory);
int addOneToUseCount(const char* config_name, int directory);
int minusOneToUseCount(const char* config_name, int directory);

// Reads the values of the given keys ("Name", "Bounds.width") from a
// key=value file; a key missing from the file reads as the empty text.
// Returns 0 when the file is missing.
#define CONFIG_VALUE_SIZE 96
int readConfigValues(const char* path, const char* const* keys, char (*values)[CONFIG_VALUE_SIZE], int count);

#endif
