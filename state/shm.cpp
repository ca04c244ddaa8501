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

void* getShareMemory(int* id, const char* path, size_t size)
{
    char real[512];
    resolvePath(path, real, sizeof real);
    key_t key = ftok(real, 0);
    if (key == (key_t)-1) {
        printf("getShareMemory: ftok error\n");
        printf("errno=%d\n", errno);
        return 0;
    }
    *id = shmget(key, size, 0666);
    if (*id < 0)
        return 0;
    void* p = shmat(*id, 0, 0);
    return p == (void*)-1 ? 0 : p;
}

void* createShareMemory(int* id, const char* path, unsigned words)
{
    char real[512];
    resolvePath(path, real, sizeof real);
    key_t key = ftok(real, 0);
    if (key == (key_t)-1) {
        printf("createShareMemory: ftok error\n");
        printf("errno=%d\n", errno);
        return 0;
    }
    *id = shmget(key, (size_t)words * 4, 0666 | IPC_CREAT);
    if (*id < 0) {
        printf("createShareMemory: shmget error\n");
        printf("errno=%d\n", errno);
        return 0;
    }
    void* p = shmat(*id, 0, 0);
    return p == (void*)-1 ? 0 : p;
}

void* createShareMemoryChar(int* id, const char* path, int bytes)
{
    char real[512];
    resolvePath(path, real, sizeof real);
    key_t key = ftok(real, 0);
    if (key == (key_t)-1) {
        fprintf(stderr, "createShareMemoryChar: ftok error\n%d\n", errno);
        return 0;
    }
    *id = shmget(key, (size_t)bytes, 0666 | IPC_CREAT);
    if (*id < 0) {
        fprintf(stderr, "createShareMemoryChar: shmget error\n");
        return 0;  // never clear memory we do not have
    }
    void* p = shmat(*id, 0, 0);
    if (p == (void*)-1)
        return 0;
    memset(p, 0, (size_t)bytes);
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
