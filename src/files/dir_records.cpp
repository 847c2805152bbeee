// Conversion between the product's full directory entry record and its three older,
// shorter layouts: the refusals and the one log line; the rules are in dir_record_rules.h.
#include <stddef.h>

#include "Wrenkits.h"
#include "files/dir_record_rules.h"
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

// A record with an unterminated name is refused whole, before anything is written.
DWORD Converted(const char* who, bool converted) {
    if (converted) return ERROR_SUCCESS;
    LogA("%s name not terminated within its field, record not converted", who);
    return ERROR_FILENAME_EXCED_RANGE;
}

}  // namespace

extern "C" DWORD WINAPI ZN_CopyDirData(DirDataRecord* record, DirEntryRecord* entry, BOOL toEntry) {
    if (!record || !entry) return ERROR_INVALID_PARAMETER;
    return Converted("ZN_CopyDirData", wrenkits::dirrecords::ConvertDirData(*record, *entry, toEntry));
}

extern "C" DWORD WINAPI ZN_CopyDirDataX(DirDataXRecord* record, DirEntryRecord* entry, BOOL toEntry) {
    if (!record || !entry) return ERROR_INVALID_PARAMETER;
    return Converted("ZN_CopyDirDataX", wrenkits::dirrecords::ConvertDirDataX(*record, *entry, toEntry));
}

extern "C" DWORD WINAPI ZN_CopyDirDataX2(DirDataX2Record* record, DirEntryRecord* entry, BOOL toEntry) {
    if (!record || !entry) return ERROR_INVALID_PARAMETER;
    return Converted("ZN_CopyDirDataX2", wrenkits::dirrecords::ConvertDirDataX2(*record, *entry, toEntry));
}
