// The waiting rules of the start and stop functions, on plain ticks and status records.
#include <gtest/gtest.h>

#include "service/service_wait.h"

TEST(ServiceWait, PollsATenthOfTheHintWithinOneToTenSecondsAndStallsOnceMoreThanTheHintPassed) {
    const DWORD polls[][2] = {{9999, 1000}, {10009, 1000}, {10010, 1001}, {99999, 9999}, {100019, 10000}};
    for (const auto& [hint, interval] : polls) EXPECT_EQ(interval, wrenkits::PollInterval(hint)) << "hint " << hint;
    constexpr DWORD kStart = 0xFFFFF800;  // the counter wraps during the watch
    // Tick, check point, progressing: exactly the hint is not more; growth restarts the clock;
    // a smaller check point is no progress.
    const DWORD steps[][3] = {{kStart + 3000, 1, 1}, {kStart + 3001, 2, 1}, {kStart + 6001, 2, 1}, {kStart + 6002, 1, 0}};
    wrenkits::ProgressWatch watch(kStart, 1);
    SERVICE_STATUS_PROCESS s = {};
    s.dwWaitHint = 3000;
    for (const auto& [tick, checkPoint, progressing] : steps) {
        s.dwCheckPoint = checkPoint;
        EXPECT_EQ(progressing != 0, watch.Progressing(tick, s)) << tick - kStart;
    }
}
