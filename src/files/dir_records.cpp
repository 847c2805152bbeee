// Conversion between the product's full directory entry record and its three older,
// shorter layouts. Pure data work: no I/O besides the one refusal line.
#include <stddef.h>
#include <string.h>
#include <wchar.h>

#include "Wrenkits.h"
#include "frame/log.h"

// The layouts are exchanged with callers byte for byte: every field sits where the
// older products put it.
static_assert(sizeof(DirEntryRecord) == 630 && offsetof(DirEntryRecord, E6) == 32 &&
              offsetof(DirEntryRecord, E14) == 64 && offsetof(DirEntryRecord, E18) == 72 &&
              offsetof(DirEntryRecord, E19) == 100 && offsetof(DirEntryRecord, E20) == 108 &&
              offsetof(DirEntryRecord, E21) == 110);
static_assert(sizeof(DirDataRecord) == 586 && offsetof(DirDataRecord, C6) == 32 &&
              offsetof(DirDataRecord, C12) == 56 && offsetof(DirDataRecord, C16) == 64 &&
              offsetof(DirDataRecord, C17) == 66);
static_assert(sizeof(DirDataXRecord) == 614 && offsetof(DirDataXRecord, C12) == 56 &&
              offsetof(DirDataXRecord, C16) == 64 && offsetof(DirDataXRecord, C17) == 92 &&
              offsetof(DirDataXRecord, C18) == 94);
static_assert(sizeof(DirDataX2Record) == 622 && offsetof(DirDataX2Record, D14) == 64 &&
              offsetof(DirDataX2Record, D18) == 72 && offsetof(DirDataX2Record, D19) == 100 &&
              offsetof(DirDataX2Record, D20) == 102);

namespace {

constexpr WORD kFourthFieldMark = 0x100;

template <size_t N>
bool Terminated(const WCHAR (&text)[N]) {
    return wmemchr(text, L'\0', N) != nullptr;
}

// A name without its terminator would have the bounded copy read past the field;
// the record is refused whole instead, before anything is written.
template <size_t N, size_t M>
bool NamesFit(const char* who, const WCHAR (&name)[N], const WCHAR (&shortName)[M]) {
    if (Terminated(name) && Terminated(shortName)) return true;
    LogA("%s name not terminated within its field, record not converted", who);
    return false;
}
template <size_t N>
bool NamesFit(const char* who, const WCHAR (&name)[N]) {
    const WCHAR none[1] = {};
    return NamesFit(who, name, none);
}

template <size_t N, size_t M>
void CopyName(WCHAR (&to)[N], const WCHAR (&from)[M]) {
    static_assert(N == M);
    wcscpy_s(to, N, from);
}

// Layouts 1 and 2 are the entry's head without E8 and E9: the same bytes up to E7,
// then E10 to E17 behind them. One map of those two runs serves both directions.
constexpr size_t kLeadBytes = offsetof(DirEntryRecord, E8);
constexpr size_t kEntryRunOffset = offsetof(DirEntryRecord, E10);
constexpr size_t kRunBytes = offsetof(DirEntryRecord, E18) - kEntryRunOffset;

template <typename Older>
void MoveHead(Older& c, DirEntryRecord& e, bool toEntry) {
    static_assert(offsetof(Older, C8) == kLeadBytes && offsetof(Older, C15) + sizeof c.C15 == kLeadBytes + kRunBytes);
    auto* entry = reinterpret_cast<unsigned char*>(&e);
    auto* older = reinterpret_cast<unsigned char*>(&c);
    memcpy(toEntry ? entry : older, toEntry ? older : entry, kLeadBytes);
    memcpy(toEntry ? entry + kEntryRunOffset : older + kLeadBytes,
           toEntry ? older + kLeadBytes : entry + kEntryRunOffset, kRunBytes);
}

template <typename Older>
void OlderHeadToEntry(Older& c, DirEntryRecord& e) {
    MoveHead(c, e, true);
    e.E17 = static_cast<WORD>(c.C15 | kFourthFieldMark);
    // Only a folder's record carries these two again.
    const bool folder = c.C2 & FILE_ATTRIBUTE_DIRECTORY;
    e.E8 = folder ? c.C6 : 0;
    e.E9 = folder ? c.C8 : 0;
}

// The mark added on the way in stays in the fourth field.
template <typename Older>
void EntryHeadToOlder(DirEntryRecord& e, Older& c) { MoveHead(c, e, false); }

}  // namespace

extern "C" DWORD WINAPI ZN_CopyDirData(DirDataRecord* record, DirEntryRecord* entry, BOOL toEntry) {
    constexpr char kName[] = "ZN_CopyDirData";
    if (!record || !entry) return ERROR_INVALID_PARAMETER;
    if (toEntry) {
        if (!NamesFit(kName, record->C17)) return ERROR_FILENAME_EXCED_RANGE;
        OlderHeadToEntry(*record, *entry);
        entry->E20 = record->C16;
        entry->E18[0] = L'\0';
        CopyName(entry->E21, record->C17);
    } else {
        if (!NamesFit(kName, entry->E21)) return ERROR_FILENAME_EXCED_RANGE;
        EntryHeadToOlder(*entry, *record);
        record->C16 = entry->E20;
        CopyName(record->C17, entry->E21);
    }
    return ERROR_SUCCESS;
}

extern "C" DWORD WINAPI ZN_CopyDirDataX(DirDataXRecord* record, DirEntryRecord* entry, BOOL toEntry) {
    constexpr char kName[] = "ZN_CopyDirDataX";
    if (!record || !entry) return ERROR_INVALID_PARAMETER;
    if (toEntry) {
        if (!NamesFit(kName, record->C18, record->C16)) return ERROR_FILENAME_EXCED_RANGE;
        OlderHeadToEntry(*record, *entry);
        entry->E20 = record->C17;
        CopyName(entry->E18, record->C16);
        CopyName(entry->E21, record->C18);
    } else {
        if (!NamesFit(kName, entry->E21, entry->E18)) return ERROR_FILENAME_EXCED_RANGE;
        EntryHeadToOlder(*entry, *record);
        record->C17 = entry->E20;
        CopyName(record->C16, entry->E18);
        CopyName(record->C18, entry->E21);
    }
    return ERROR_SUCCESS;
}

extern "C" DWORD WINAPI ZN_CopyDirDataX2(DirDataX2Record* record, DirEntryRecord* entry, BOOL toEntry) {
    if (!record || !entry) return ERROR_INVALID_PARAMETER;
    // Layout 3 is the entry record without E19: the same bytes up to the short name.
    constexpr size_t kHead = offsetof(DirEntryRecord, E19);
    static_assert(kHead == offsetof(DirDataX2Record, D19));
    // The short name travels inside the head as plain bytes; only the name is a string copy.
    if (!NamesFit("ZN_CopyDirDataX2", toEntry ? record->D20 : entry->E21)) return ERROR_FILENAME_EXCED_RANGE;
    if (toEntry) {
        memcpy(entry, record, kHead);
        entry->E19 = 0;
        entry->E20 = record->D19;
        CopyName(entry->E21, record->D20);
    } else {
        memcpy(record, entry, kHead);
        record->D19 = entry->E20;
        CopyName(record->D20, entry->E21);
    }
    return ERROR_SUCCESS;
}
