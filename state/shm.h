// The device-state segment: the System V shared memory that the camera's
// daemons and this service share, read and written as 32-bit words.
#ifndef STATE_SHM_H
#define STATE_SHM_H

#include <stddef.h>

#include "state/shm_words.h"
#include "state/model.h"

#define ONVIF_SHM_KEY_FILE "/tmp/ONVIF_SHM/onvif"
#define ONVIF_SHM_ATTACH_BYTES 1000
#define ONVIF_SHM_WORDS 1024  // what the camera's start-up creates (4096 bytes)


extern int* G_shared_memory;
extern int shmid;

void* getShareMemory(int* id, const char* path, size_t size);
void* createShareMemory(int* id, const char* path, unsigned words);
void* createShareMemoryChar(int* id, const char* path, int bytes);
void deleteShareMemory(void* address, int id);
void deleteShareMemoryChar(void* address, int id);
void createShareMemoryDevice();

// A word of the segment, or 0 when the segment is not attached.
int shmWord(int n);
// Writes a word; nothing when the segment is not attached.
void setShmWord(int n, int value);

#endif
