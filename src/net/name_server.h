// The DNS servers of an adapter's "NameServer" value and the bounded copy the share
// names use too. No OS calls, so they build and are fuzzed natively too.
#pragma once

#include <stddef.h>

namespace wrenkits {

// Copies `count` characters and a terminator; false when they would not fit.
bool CopyPart(wchar_t* out, size_t capacity, const wchar_t* text, size_t count);

// "NameServer" holds the DNS servers separated by a comma. The part before the
// first comma goes to `primary`, everything after it to `secondary`; an empty part
// leaves its field alone, and so does a part that does not fit its 20 characters
// (then the result is false).
bool SplitNameServer(const wchar_t* text, wchar_t (&primary)[20], wchar_t (&secondary)[20]);

}  // namespace wrenkits
