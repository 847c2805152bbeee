// fuzz-sources:
// Any bytes as an older record and an entry record, converted both ways, on mirrors of
// the packed layouts of Wrenkits.h (char16_t standing in for the 16-bit WCHAR).
#include "files/dir_record_rules.h"
#include "fuzz_input.h"

#include <memory>

namespace {
using u16 = std::uint16_t;
using u32 = std::uint32_t;
using u64 = std::uint64_t;
#pragma pack(push, 1)
struct Entry { u32 E1, E2; u64 E3, E4, E5; u32 E6, E7, E8, E9, E10, E11, E12, E13; u16 E14, E15, E16, E17; char16_t E18[14]; u64 E19; u16 E20; char16_t E21[260]; };
struct Data { u32 C1, C2; u64 C3, C4, C5; u32 C6, C7, C8, C9, C10, C11; u16 C12, C13, C14, C15, C16; char16_t C17[260]; };
struct DataX { u32 C1, C2; u64 C3, C4, C5; u32 C6, C7, C8, C9, C10, C11; u16 C12, C13, C14, C15; char16_t C16[14]; u16 C17; char16_t C18[260]; };
struct DataX2 { u32 D1, D2; u64 D3, D4, D5; u32 D6, D7, D8, D9, D10, D11, D12, D13; u16 D14, D15, D16, D17; char16_t D18[14]; u16 D19; char16_t D20[260]; };
#pragma pack(pop)
static_assert(sizeof(Entry) == 630 && sizeof(Data) == 586 && sizeof(DataX) == 614 && sizeof(DataX2) == 622);

template <typename Record, typename Convert>
void Run(fuzz::Input in, bool toEntry, Convert convert) {
    // Each record in its own allocation of its exact size.
    auto record = std::make_unique<Record>();
    auto entry = std::make_unique<Entry>();
    std::memcpy(record.get(), in.data(), std::min(in.size(), sizeof(Record)));
    if (in.size() > sizeof(Record))
        std::memcpy(entry.get(), in.data() + sizeof(Record), std::min(in.size() - sizeof(Record), sizeof(Entry)));
    const Record recordBefore = *record;
    const Entry entryBefore = *entry;
    const bool converted = convert(*record, *entry, toEntry);
    // The source is never written; nothing at all is written when refused.
    FUZZ_CHECK(std::memcmp(toEntry ? static_cast<const void*>(record.get()) : entry.get(),
                           toEntry ? static_cast<const void*>(&recordBefore) : &entryBefore,
                           toEntry ? sizeof(Record) : sizeof(Entry)) == 0);
    if (!converted) {
        FUZZ_CHECK(std::memcmp(record.get(), &recordBefore, sizeof(Record)) == 0);
        FUZZ_CHECK(std::memcmp(entry.get(), &entryBefore, sizeof(Entry)) == 0);
    } else {
        FUZZ_CHECK(wrenkits::dirrecords::Terminated(entry->E21));
    }
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace wrenkits::dirrecords;
    fuzz::Input in(data, size);
    const auto choice = in.Take<std::uint8_t>();
    const bool toEntry = choice & 1;
    switch (choice / 2 % 3) {
    case 0: Run<Data>(in, toEntry, [](auto& r, auto& e, bool t) { return ConvertDirData(r, e, t); }); break;
    case 1: Run<DataX>(in, toEntry, [](auto& r, auto& e, bool t) { return ConvertDirDataX(r, e, t); }); break;
    default: Run<DataX2>(in, toEntry, [](auto& r, auto& e, bool t) { return ConvertDirDataX2(r, e, t); }); break;
    }
    return 0;
}
