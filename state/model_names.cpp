// The words, codes and capabilities by the names the tools and tests give
// them; apart from the table so that the service never carries the names.
#include "state/model.h"

#include <string.h>

int capabilityByText(const char* text, Cap* cap)
{
    static const char* const TEXTS[] = {
#define MODEL_CAPABILITY_TEXT(name, t) t,
        MODEL_CAPABILITY_LIST(MODEL_CAPABILITY_TEXT)
#undef MODEL_CAPABILITY_TEXT
    };
    for (int i = 0; i < (int)Cap::Count; ++i)
        if (strcmp(TEXTS[i], text) == 0) {
            *cap = (Cap)i;
            return 1;
        }
    return 0;
}

int shmNameValue(const char* name, int* value)
{
    struct Named {
        const char* name;
        int value;
    };
    static const Named NAMES[] = {
#define SHM_WORD_NAME(n, number, writer, meaning) {#n, number},
        SHM_WORD_LIST(SHM_WORD_NAME)
#undef SHM_WORD_NAME
#define MODEL_CODE_NAME(n, word, code) {#n, code},
        MODEL_CODE_LIST(MODEL_CODE_NAME)
#undef MODEL_CODE_NAME
    };
    for (const Named& n : NAMES)
        if (strcmp(n.name, name) == 0) {
            *value = n.value;
            return 1;
        }
    return 0;
}
