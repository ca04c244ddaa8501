// The device-state segment: the System V shared memory that the camera's
// daemons and this service share, read and written as 32-bit words.
#ifndef STATE_SHM_H
#define STATE_SHM_H

#include <stddef.h>

#define ONVIF_SHM_KEY_FILE "/tmp/ONVIF_SHM/onvif"
#define ONVIF_SHM_ATTACH_BYTES 1000
#define ONVIF_SHM_WORDS 1024  // what the camera's start-up creates (4096 bytes)

// Words the frame itself uses; the handler folders name their own.
#define SERVICE_READY 1
#define VARIANT_CODE 2
#define WS_MSG_NUM 64
#define AUTH_ON_WORD 845

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

#endif
