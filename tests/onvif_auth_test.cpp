// The ONVIF mode's access table against the standard's documents; how each
// class is enforced per level is in tests/scenarios/onvif_auth.scenario.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>

#include "frame/access.h"

namespace {

TEST(OnvifAuth, TheAccessTableIsTheDocuments)
{
    int rows = 0;
    const ActionRow* table = actionTable(&rows);
    for (int i = 0; i < rows; ++i) {
        if (!(table[i].flags & LEGACY_ONLY) && table[i].handler) {
            EXPECT_NE(accessClassOf(&table[i]), ACC_UNLISTED) << table[i].name << ": no document gives its class";
        }
    }
    int rc = system("python3 " ONVIF_SOURCE_DIR "/tools/access-classes.py --check");
    if (WIFEXITED(rc) && WEXITSTATUS(rc) == 3)
        GTEST_SKIP() << "the ONVIF documents are not on this machine";
    EXPECT_EQ(rc, 0) << "frame/access_classes.inc differs from the documents: run tools/access-classes.py";
}

}  // namespace
