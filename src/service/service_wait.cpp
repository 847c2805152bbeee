#include "service/service_wait.h"

namespace wrenkits {

DWORD PollInterval(DWORD waitHint) {
    const DWORD interval = waitHint / 10;
    if (interval < 1000) return 1000;
    if (interval > 10000) return 10000;
    return interval;
}

}  // namespace wrenkits
