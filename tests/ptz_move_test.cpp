// The lens tables between a zoom ratio and a lens step, both ways; the moves
// themselves are recorded in tests/scenarios/ptz.scenario.
#include "ptz/ptzmove.h"

#include <gtest/gtest.h>

TEST(PtzLens, StepsAndReadBack)
{
    int w68 = -1;
    struct Step { int lens; double ratio; int step; };
    for (const Step& s : {Step{4, 0, 1}, Step{4, 9.99, 10}, Step{4, 10, 10}, Step{5, 2.5, 4}, Step{5, 9.0, 17},
                          Step{3, 6.99, 2}})
        EXPECT_EQ(zoomStepFor(s.lens, s.ratio, &w68), s.step) << s.lens << " " << s.ratio;
    EXPECT_DOUBLE_EQ(zoomFromStep(5, 4), 0.25);
    EXPECT_DOUBLE_EQ(zoomFromStep(5, 17), 0.9);
    EXPECT_DOUBLE_EQ(zoomFromStep(3, 10), 1.0);
    EXPECT_DOUBLE_EQ(zoomFromStep(4, 11), 1.0);
}
