// onvif-shm: creates, removes and edits the device-state segment of a
// camera root, standing in for the camera's start-up and daemons.
//   onvif-shm create            make the key file and a zeroed segment
//   onvif-shm remove            remove the segment
//   onvif-shm set N=V [N=V...]  set words
//   onvif-shm get N             print a word
//   onvif-shm dump              print the non-zero words as N=V
//   onvif-shm has CAPABILITY    exit 0 when the camera the words describe has it
//   onvif-shm value CAPABILITY  print a capability's value
// A word N may be given by its name in state/shm_words.h, a value V by the
// name of a code in state/model.h. The root is ONVIF_ROOT, as for the service.
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

// A number, or a word or code name, up to the end or an '='.
static int parseNumberOrName(const char* text, long* out)
{
    char name[64];
    size_t len = strcspn(text, "=");
    char* end;
    *out = strtol(text, &end, 10);
    if (end != text && (size_t)(end - text) == len)
        return 1;
    int value;
    if (len >= sizeof name)
        return 0;
    memcpy(name, text, len);
    name[len] = 0;
    if (!shmNameValue(name, &value))
        return 0;
    *out = value;
    return 1;
}

static int wordNumber(const char* text)
{
    long n;
    if (!parseNumberOrName(text, &n) || n < 0 || n >= ONVIF_SHM_WORDS) {
        fprintf(stderr, "onvif-shm: bad word number %s\n", text);
        exit(2);
    }
    return (int)n;
}

int main(int argc, char** argv)
{
    if (argc < 2) {
        fprintf(stderr, "usage: onvif-shm create|remove|set N=V...|get N|dump|has C|value C\n");
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
            long value;
            if (!parseNumberOrName(eq + 1, &value)) {
                fprintf(stderr, "onvif-shm: bad value %s\n", eq + 1);
                return 2;
            }
            words[wordNumber(argv[i])] = (int)value;
        }
        return 0;
    }
    if (strcmp(verb, "get") == 0 && argc > 2) {
        printf("%d\n", words[wordNumber(argv[2])]);
        return 0;
    }
    if ((strcmp(verb, "has") == 0 || strcmp(verb, "value") == 0) && argc > 2) {
        Cap cap;
        if (!capabilityByText(argv[2], &cap)) {
            fprintf(stderr, "onvif-shm: unknown capability %s\n", argv[2]);
            return 2;
        }
        G_shared_memory = words;
        if (verb[0] == 'h')
            return modelHas(cap) ? 0 : 1;
        printf("%d\n", modelValue(cap));
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
