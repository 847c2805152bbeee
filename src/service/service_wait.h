// The rules by which the start and stop functions wait on a service: how long to
// sleep between looks at its status, when a pending state counts as stalled, and the
// fixed bound of a stop. Plain arithmetic over ticks and status fields.
#pragma once

#include <windows.h>

namespace wrenkits {

// A stop, its dependants' stop included, gives up after this many milliseconds.
inline constexpr DWORD kStopBoundMs = 30000;
// Pause between stop requests that a running dependant refused.
inline constexpr DWORD kDependantRetryMs = 2000;
inline constexpr int kStopAttempts = 3;

// A tenth of the service's wait hint, never below one second nor above ten.
DWORD PollInterval(DWORD waitHint);

// Whether more than `bound` milliseconds lie between two tick counts; the unsigned
// difference stays right across the 49-day wrap of the tick counter.
inline bool MoreThan(DWORD bound, DWORD startTick, DWORD nowTick) { return nowTick - startTick > bound; }

// Watches a pending service's check point: the service must raise it within the wait
// hint it gave, or it is taken to be stuck.
class ProgressWatch {
public:
    ProgressWatch(DWORD tick, DWORD checkPoint) : tick_(tick), checkPoint_(checkPoint) {}

    // Takes a fresh status; false once the check point stood still for longer than
    // the status' wait hint.
    bool Progressing(DWORD tick, const SERVICE_STATUS_PROCESS& status) {
        if (status.dwCheckPoint > checkPoint_) {
            checkPoint_ = status.dwCheckPoint;
            tick_ = tick;
            return true;
        }
        return !MoreThan(status.dwWaitHint, tick_, tick);
    }

private:
    DWORD tick_;
    DWORD checkPoint_;
};

}  // namespace wrenkits
