// wrenkit: a command-line host for Wrenkits.dll, for support engineers and for trying
// the library's exports by hand. Every command prints the export's result and exits
// with it; the library's own account of what it did goes to QRB.log beside this
// program (when that file exists) and to the debugger output.
#include <stdio.h>
#include <string.h>
#include <wchar.h>

#include <vector>

#include "commands.h"

namespace wrenkit {
namespace {

std::vector<Command>& Table() {
    static std::vector<Command> table;
    return table;
}

// The words of a command's name: "bcd repair" has two.
int NameWords(const Command& c) { return wcschr(c.name, L' ') ? 2 : 1; }

bool Matches(const Command& c, int argc, wchar_t** argv) {
    const wchar_t* space = wcschr(c.name, L' ');
    if (!space) return Is(argv[1], c.name);
    const size_t head = static_cast<size_t>(space - c.name);
    return argc > 2 && wcslen(argv[1]) == head && _wcsnicmp(argv[1], c.name, head) == 0 && Is(argv[2], space + 1);
}

void PrintRow(const Command& c) { fwprintf(stderr, L"  %ls %ls\n      %ls\n", c.name, c.usage, c.help); }

int UsageAll() {
    fwprintf(stderr, L"usage: wrenkit COMMAND [ARGS]   (exit code = the export's result; 2 = bad arguments)\n");
    for (const Command& c : Table()) PrintRow(c);
    return 2;
}

}  // namespace

CommandTable::CommandTable(std::initializer_list<Command> rows) {
    Table().insert(Table().end(), rows.begin(), rows.end());
}

const wchar_t* Args::option(const wchar_t* name) const {
    for (int i = 0; i + 1 < count; ++i)
        if (Is(values[i], name)) return values[i + 1];
    return nullptr;
}

bool Args::flag(const wchar_t* name) const {
    for (int i = 0; i < count; ++i)
        if (Is(values[i], name)) return true;
    return false;
}

int Usage(const Command& command) {
    fwprintf(stderr, L"usage: wrenkit\n");
    PrintRow(command);
    return 2;
}

int Usage(const wchar_t* name) {
    for (const Command& c : Table())
        if (Is(c.name, name)) return Usage(c);
    return UsageAll();
}

int Result(DWORD code) {
    wprintf(L"result %lu\n", code);
    return static_cast<int>(code);
}

bool ParseLetter(const wchar_t* text, WCHAR& letter) {
    if (!text || !iswalpha(text[0]) || text[0] > 0x7f) return false;
    if (text[1] != 0 && !(text[1] == L':' && text[2] == 0)) return false;
    letter = static_cast<WCHAR>(towupper(text[0]));
    return true;
}

bool Is(const wchar_t* a, const wchar_t* b) { return a && b && _wcsicmp(a, b) == 0; }

}  // namespace wrenkit

int wmain(int argc, wchar_t** argv) {
    using namespace wrenkit;
    if (argc < 2) return UsageAll();
    for (const Command& c : Table()) {
        if (!Matches(c, argc, argv)) continue;
        const int skip = 1 + NameWords(c);
        const Args args{argc - skip, argv + skip};
        if (args.flag(L"--help")) return Usage(c);
        return c.run(args);
    }
    return UsageAll();
}
