// Finding, creating, attaching and removing the device-state segment.
#include "state/shm.h"
#include "state/paths.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ipc.h>
#include <sys/shm.h>

int* G_shared_memory = 0;
int shmid = -1;

// The one way to a segment: key from the resolved path and project 0, look
// it up (or create it with flags), attach it read-write. Each caller prints
// its own messages; *stage tells which step failed (1 key, 2 lookup).
static void* attachSegment(int* id, const char* path, size_t size, int flags, int* stage)
{
    char real[512];
    resolvePath(path, real, sizeof real);
    key_t key = ftok(real, 0);
    if (key == (key_t)-1) {
        *stage = 1;
        return 0;
    }
    *id = shmget(key, size, 0666 | flags);
    if (*id < 0) {
        *stage = 2;
        return 0;
    }
    void* p = shmat(*id, 0, 0);
    return p == (void*)-1 ? 0 : p;
}

void* getShareMemory(int* id, const char* path, size_t size)
{
    int stage = 0;
    void* p = attachSegment(id, path, size, 0, &stage);
    if (stage == 1) {
        printf("getShareMemory: ftok error\n");
        printf("errno=%d\n", errno);
    }
    return p;
}

void* createShareMemory(int* id, const char* path, unsigned words)
{
    int stage = 0;
    void* p = attachSegment(id, path, (size_t)words * 4, IPC_CREAT, &stage);
    if (stage) {
        printf(stage == 1 ? "createShareMemory: ftok error\n" : "createShareMemory: shmget error\n");
        printf("errno=%d\n", errno);
    }
    return p;
}

void* createShareMemoryChar(int* id, const char* path, int bytes)
{
    int stage = 0;
    void* p = attachSegment(id, path, (size_t)bytes, IPC_CREAT, &stage);
    if (stage == 1)
        fprintf(stderr, "createShareMemoryChar: ftok error\n%d\n", errno);
    else if (stage == 2)
        fprintf(stderr, "createShareMemoryChar: shmget error\n");
    if (p)
        memset(p, 0, (size_t)bytes);  // never clear memory we do not have
    return p;
}

void deleteShareMemory(void* address, int id)
{
    if (shmdt(address) != 0)
        printf("deleteShareMemory: detach error \n");
    shmctl(id, IPC_RMID, 0);
}

void deleteShareMemoryChar(void* address, int id)
{
    if (shmdt(address) != 0)
        fprintf(stderr, "detach error \n");
    shmctl(id, IPC_RMID, 0);
}

void createShareMemoryDevice()
{
    char dir[512], file[512], cmd[1200];
    shellQuotedPath("/tmp/ONVIF_SHM/", dir, sizeof dir);
    shellQuotedPath(ONVIF_SHM_KEY_FILE, file, sizeof file);
    snprintf(cmd, sizeof cmd, "mkdir %s", dir);
    if (system(cmd)) {}
    snprintf(cmd, sizeof cmd, "echo > %s", file);
    if (system(cmd)) {}
    snprintf(cmd, sizeof cmd, "chmod 666 %s", file);
    if (system(cmd)) {}
}

int shmWord(int n)
{
    return G_shared_memory ? G_shared_memory[n] : 0;
}

void setShmWord(int n, int value)
{
    if (G_shared_memory)
        G_shared_memory[n] = value;
}
