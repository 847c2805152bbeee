// Conversion between the product's full directory entry record and its three older,
// shorter layouts, over whatever record types carry the fields: the library's own
// (Wrenkits.h) and, in the native fuzz build, mirrors of them. No OS calls.
#pragma once

#include <stddef.h>
#include <string.h>

#include <algorithm>

namespace wrenkits::dirrecords {

inline constexpr unsigned kDirectoryAttribute = 0x10;  // FILE_ATTRIBUTE_DIRECTORY
inline constexpr unsigned kFourthFieldMark = 0x100;

template <typename Char, size_t N>
bool Terminated(const Char (&text)[N]) {
    return std::find(text, text + N, Char{}) != text + N;
}

// Only called on terminated names, so the copy never reads past the field.
template <typename Char, size_t N, size_t M>
void CopyName(Char (&to)[N], const Char (&from)[M]) {
    static_assert(N == M);
    std::copy(from, std::find(from, from + M, Char{}) + 1, to);
}

// Layouts 1 and 2 are the entry's head without E8 and E9: the same bytes up to E7,
// then E10 to E17 behind them. One map of those two runs serves both directions.
template <typename Entry, typename Older>
void MoveHead(Older& c, Entry& e, bool toEntry) {
    constexpr size_t kLeadBytes = offsetof(Entry, E8);
    constexpr size_t kEntryRunOffset = offsetof(Entry, E10);
    constexpr size_t kRunBytes = offsetof(Entry, E18) - kEntryRunOffset;
    static_assert(offsetof(Older, C8) == kLeadBytes && offsetof(Older, C15) + sizeof c.C15 == kLeadBytes + kRunBytes);
    auto* entry = reinterpret_cast<unsigned char*>(&e);
    auto* older = reinterpret_cast<unsigned char*>(&c);
    memcpy(toEntry ? entry : older, toEntry ? older : entry, kLeadBytes);
    memcpy(toEntry ? entry + kEntryRunOffset : older + kLeadBytes,
           toEntry ? older + kLeadBytes : entry + kEntryRunOffset, kRunBytes);
}

template <typename Entry, typename Older>
void OlderHeadToEntry(Older& c, Entry& e) {
    MoveHead(c, e, true);
    e.E17 = static_cast<decltype(e.E17)>(c.C15 | kFourthFieldMark);
    // Only a folder's record carries these two again.
    const bool folder = c.C2 & kDirectoryAttribute;
    e.E8 = folder ? c.C6 : 0;
    e.E9 = folder ? c.C8 : 0;
}

// Each converter answers false, writing nothing, for a name without its terminator:
// the bounded copy would read past the field. The mark added on the way in stays.
template <typename Record, typename Entry>
bool ConvertDirData(Record& r, Entry& e, bool toEntry) {
    if (!Terminated(toEntry ? r.C17 : e.E21)) return false;
    if (toEntry) {
        OlderHeadToEntry(r, e);
        e.E20 = r.C16;
        e.E18[0] = 0;
        CopyName(e.E21, r.C17);
    } else {
        MoveHead(r, e, false);
        r.C16 = e.E20;
        CopyName(r.C17, e.E21);
    }
    return true;
}

template <typename Record, typename Entry>
bool ConvertDirDataX(Record& r, Entry& e, bool toEntry) {
    if (!(toEntry ? Terminated(r.C18) && Terminated(r.C16) : Terminated(e.E21) && Terminated(e.E18))) return false;
    if (toEntry) {
        OlderHeadToEntry(r, e);
        e.E20 = r.C17;
        CopyName(e.E18, r.C16);
        CopyName(e.E21, r.C18);
    } else {
        MoveHead(r, e, false);
        r.C17 = e.E20;
        CopyName(r.C16, e.E18);
        CopyName(r.C18, e.E21);
    }
    return true;
}

// Layout 3 is the entry record without E19: the same bytes up to the short name,
// which travels inside the head as plain bytes; only the name is a string copy.
template <typename Record, typename Entry>
bool ConvertDirDataX2(Record& r, Entry& e, bool toEntry) {
    constexpr size_t kHead = offsetof(Entry, E19);
    static_assert(kHead == offsetof(Record, D19));
    if (!Terminated(toEntry ? r.D20 : e.E21)) return false;
    if (toEntry) {
        memcpy(&e, &r, kHead);
        e.E19 = 0;
        e.E20 = r.D19;
        CopyName(e.E21, r.D20);
    } else {
        memcpy(&r, &e, kHead);
        r.D19 = e.E20;
        CopyName(r.D20, e.E21);
    }
    return true;
}

}  // namespace wrenkits::dirrecords
