// The capability table: a capability without rows would read as "no" for
// every camera, and the tools find each one by its text.
#include "state/model.h"

#include <gtest/gtest.h>

namespace {

TEST(Model, EveryCapabilityHasRowsAndItsTextFindsIt)
{
    const char* texts[] = {
#define TEXT(name, text) text,
        MODEL_CAPABILITY_LIST(TEXT)
#undef TEXT
    };
    for (int i = 0; i < (int)Cap::Count; ++i) {
        EXPECT_GT(capabilityRows((Cap)i), 0) << texts[i];
        Cap found;
        ASSERT_TRUE(capabilityByText(texts[i], &found)) << texts[i];
        EXPECT_EQ((int)found, i) << texts[i];
    }
}

}  // namespace
