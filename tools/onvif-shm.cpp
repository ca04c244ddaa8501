// onvif-shm: creates, removes and edits the device-state segment of a
// camera root, standing in for the camera's start-up and daemons.
//   onvif-shm create            make the key file and a zeroed segment
//   onvif-shm remove            remove the segment
//   onvif-shm set N=V [N=V...]  set words
//   onvif-shm get N             print a word
//   onvif-shm dump              print the non-zero words as N=V
// The root is ONVIF_ROOT, as for the service.
#include "state/paths.h"
#include "state/shm.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/shm.h>
#include <sys/stat.h>

static int* attach()
{
    int* p = (int*)getShareMemory(&shmid, ONVIF_SHM_KEY_FILE, ONVIF_SHM_WORDS * 4);
    if (!p)
        fprintf(stderr, "onvif-shm: no segment for this root\n");
    return p;
}

static int wordNumber(const char* text)
{
    char* end;
    long n = strtol(text, &end, 10);
    if (end == text || n < 0 || n >= ONVIF_SHM_WORDS) {
        fprintf(stderr, "onvif-shm: bad word number %s\n", text);
        exit(2);
    }
    return (int)n;
}

int main(int argc, char** argv)
{
    if (argc < 2) {
        fprintf(stderr, "usage: onvif-shm create|remove|set N=V...|get N|dump\n");
        return 2;
    }
    const char* verb = argv[1];
    if (strcmp(verb, "create") == 0) {
        char dir[512], file[512];
        resolvePath("/tmp/ONVIF_SHM", dir, sizeof dir);
        mkdir(dir, 0777);
        resolvePath(ONVIF_SHM_KEY_FILE, file, sizeof file);
        FILE* f = fopen(file, "a");
        if (f)
            fclose(f);
        int id;
        void* p = createShareMemoryChar(&id, ONVIF_SHM_KEY_FILE, ONVIF_SHM_WORDS * 4);
        if (!p)
            return 1;
        shmdt(p);
        printf("%d\n", id);
        return 0;
    }
    int* words = attach();
    if (!words)
        return 1;
    if (strcmp(verb, "remove") == 0) {
        deleteShareMemoryChar(words, shmid);
        return 0;
    }
    if (strcmp(verb, "set") == 0) {
        for (int i = 2; i < argc; ++i) {
            const char* eq = strchr(argv[i], '=');
            if (!eq) {
                fprintf(stderr, "onvif-shm: expected N=V, got %s\n", argv[i]);
                return 2;
            }
            words[wordNumber(argv[i])] = (int)strtol(eq + 1, 0, 10);
        }
        return 0;
    }
    if (strcmp(verb, "get") == 0 && argc > 2) {
        printf("%d\n", words[wordNumber(argv[2])]);
        return 0;
    }
    if (strcmp(verb, "dump") == 0) {
        for (int i = 0; i < ONVIF_SHM_WORDS; ++i)
            if (words[i])
                printf("%d=%d\n", i, words[i]);
        return 0;
    }
    fprintf(stderr, "onvif-shm: unknown command %s\n", verb);
    return 2;
}
