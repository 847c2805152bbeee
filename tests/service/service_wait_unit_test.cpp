// The waiting rules of the start and stop functions, on plain ticks and status records.
#include <gtest/gtest.h>

#include "service/service_wait.h"

namespace {

TEST(ServiceWait, PollIntervalIsATenthOfTheHintWithinOneToTenSeconds) {
    const DWORD cases[][2] = {{0, 1000},       {9999, 1000},    {10009, 1000},       {10010, 1001},
                              {99999, 9999},   {100000, 10000}, {100019, 10000},     {0xFFFFFFFF, 10000}};
    for (const auto& [hint, interval] : cases) EXPECT_EQ(interval, wrenkits::PollInterval(hint)) << "hint " << hint;
}

TEST(ServiceWait, BoundsCountUnsignedTickDifferencesAcrossTheWrap) {
    struct {
        DWORD start, now;
        bool over;
    } cases[] = {{1000, 31000, false}, {1000, 31001, true}, {0xFFFFF000, 30000 - 0x1000, false},
                 {0xFFFFF000, 30001 - 0x1000, true}, {5, 5, false}};
    for (const auto& c : cases) EXPECT_EQ(c.over, wrenkits::MoreThan(30000, c.start, c.now)) << c.start << " " << c.now;
}

TEST(ServiceWait, ProgressRestartsTheClockAndAStallEndsOnceMoreThanTheHintPassed) {
    constexpr DWORD kStart = 0xFFFFF800;  // the counter wraps during the watch
    struct Step {
        DWORD tick, checkPoint;
        bool progressing;
    } steps[] = {
        {kStart + 1000, 1, true},
        {kStart + 3000, 1, true},          // exactly the hint: not more
        {kStart + 3001, 2, true},          // grew: the clock restarts here
        {kStart + 6001, 2, true},
        {kStart + 6002, 1, false},         // a smaller check point is no progress
    };
    wrenkits::ProgressWatch watch(kStart, 1);
    SERVICE_STATUS_PROCESS s = {};
    s.dwWaitHint = 3000;
    for (const Step& step : steps) {
        s.dwCheckPoint = step.checkPoint;
        EXPECT_EQ(step.progressing, watch.Progressing(step.tick, s)) << step.tick - kStart;
    }
}

}  // namespace
