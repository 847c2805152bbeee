// wrenkit: a command-line host for Wrenkits.dll, for support engineers and for trying
// the library's exports by hand. Every command prints the export's result and exits
// with it; the library's own account of what it did goes to QRB.log beside this
// program (when that file exists, which "--log" sees to) and to the debugger output.
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <wchar.h>
#include <wctype.h>

#include <algorithm>
#include <string>

#include "commands.h"

// After windows.h (through commands.h), which it needs.
#include <delayimp.h>

namespace wrenkit {
namespace {

std::vector<Command>& Table() {
    static std::vector<Command> table;
    return table;
}

void PrintRow(FILE* out, const Command& c) { fwprintf(out, L"  %ls %ls\n      %ls\n", c.name, c.usage, c.help); }

void PrintHeader(FILE* out) {
    fwprintf(out,
             L"usage: wrenkit [--log] COMMAND [ARGS]   (COMMAND --help for one command)\n"
             L"  drive letters are given as D or D:; the exit code is the export's result, 2 for\n"
             L"  arguments the host could not read (the DLL is then not loaded); --log creates\n"
             L"  QRB.log beside wrenkit.exe so that the library writes its log there\n");
}

int ListAll(FILE* out, int code) {
    PrintHeader(out);
    for (const Command& c : Table()) PrintRow(out, c);
    return code;
}

// "bcd" alone or with an unknown second word: the rows of that group.
int ListGroup(const wchar_t* group) {
    const size_t length = wcslen(group);
    bool any = false;
    for (const Command& c : Table()) {
        if (wcslen(c.name) > length && c.name[length] == L' ' && _wcsnicmp(c.name, group, length) == 0) {
            if (!any) fwprintf(stderr, L"usage: wrenkit\n");
            PrintRow(stderr, c);
            any = true;
        }
    }
    if (any) return 2;
    fwprintf(stderr, L"wrenkit: unknown command %ls\n", group);
    return ListAll(stderr, 2);
}

// The usage text split into words; a "quoted phrase" is one word.
std::vector<std::wstring> UsageWords(const wchar_t* usage) {
    std::vector<std::wstring> words;
    for (const wchar_t* p = usage; *p;) {
        if (*p == L' ') {
            ++p;
            continue;
        }
        const wchar_t* end = p + 1;
        if (*p == L'"') {
            while (*end && *end != L'"') ++end;
            if (*end) ++end;
        }
        while (*end && *end != L' ') ++end;
        words.emplace_back(p, end);
        p = end;
    }
    return words;
}

struct OptionSpec {
    std::wstring name;
    bool takesValue;
    bool required;
};

struct Grammar {
    std::vector<OptionSpec> options;
    int minWords = 0;
    int maxWords = 0;  // -1: no limit
};

Grammar ParseGrammar(const wchar_t* usage) {
    Grammar g;
    const std::vector<std::wstring> words = UsageWords(usage);
    int depth = 0;
    for (size_t i = 0; i < words.size(); ++i) {
        const std::wstring& w = words[i];
        const bool optional = depth > 0 || w[0] == L'[';
        depth += static_cast<int>(std::count(w.begin(), w.end(), L'[')) - static_cast<int>(std::count(w.begin(), w.end(), L']'));
        std::wstring bare = w;
        bare.erase(std::remove_if(bare.begin(), bare.end(), [](wchar_t c) { return c == L'[' || c == L']'; }), bare.end());
        if (bare.rfind(L"--", 0) == 0) {
            const bool value = w.back() != L']' && i + 1 < words.size() && words[i + 1].rfind(L"--", 0) != 0 &&
                               words[i + 1][0] != L'[';
            g.options.push_back({bare, value, !optional});
            if (value) {
                const std::wstring& v = words[++i];
                depth -= static_cast<int>(std::count(v.begin(), v.end(), L']'));
            }
        } else if (bare == L"...") {
            g.maxWords = -1;
        } else {
            if (g.maxWords >= 0) ++g.maxWords;
            if (!optional) ++g.minWords;
        }
    }
    return g;
}

// Reads the words after the command's name against its usage; false after saying why.
bool ReadArgs(const Command& c, int argc, wchar_t** argv, Args& args) {
    const Grammar g = ParseGrammar(c.usage);
    args.command = &c;
    for (int i = 0; i < argc; ++i) {
        const wchar_t* w = argv[i];
        if (wcsncmp(w, L"--", 2) != 0 || !w[2]) {
            args.positional.push_back(w);
            continue;
        }
        const OptionSpec* known = nullptr;
        for (const OptionSpec& o : g.options)
            if (Is(o.name.c_str(), w)) known = &o;
        if (!known) {
            fwprintf(stderr, L"wrenkit: %ls takes no option %ls\n", c.name, w);
            return false;
        }
        if (known->takesValue && i + 1 >= argc) {
            fwprintf(stderr, L"wrenkit: %ls needs a value\n", w);
            return false;
        }
        args.options.emplace_back(w, known->takesValue ? argv[++i] : nullptr);
    }
    for (const OptionSpec& o : g.options) {
        if (o.required && !args.option(o.name.c_str()) && !args.flag(o.name.c_str())) {
            fwprintf(stderr, L"wrenkit: %ls needs %ls\n", c.name, o.name.c_str());
            return false;
        }
    }
    if (args.count() < g.minWords || (g.maxWords >= 0 && args.count() > g.maxWords)) {
        fwprintf(stderr, L"wrenkit: %ls takes %ls words than given\n", c.name,
                 args.count() < g.minWords ? L"more" : L"fewer");
        return false;
    }
    return true;
}

// Creates QRB.log beside this program, so that the DLL, which only ever appends to an
// existing file, writes its log there once it is loaded.
void CreateLog() {
    wchar_t path[MAX_PATH + 16] = {};
    const DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
    wchar_t* slash = length && length < MAX_PATH ? wcsrchr(path, L'\\') : nullptr;
    if (!slash) {
        fwprintf(stderr, L"wrenkit: cannot tell where wrenkit.exe lies; no log\n");
        return;
    }
    wcscpy_s(slash + 1, MAX_PATH + 16 - (slash + 1 - path), L"QRB.log");
    const HANDLE file = CreateFileW(path, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        fwprintf(stderr, L"wrenkit: cannot create %ls (error %lu); no log\n", path, GetLastError());
        return;
    }
    CloseHandle(file);
    fwprintf(stderr, L"wrenkit: the library logs to %ls\n", path);
}

// Wrenkits.dll is delay-loaded: when it is missing, or older than this host, say so and
// exit with the loader's error instead of dying of an unhandled exception.
FARPROC WINAPI DelayLoadFailed(unsigned notification, PDelayLoadInfo info) {
    if (notification == dliFailLoadLib)
        fwprintf(stderr, L"wrenkit: cannot load %hs (error %lu); it belongs beside wrenkit.exe\n", info->szDll,
                 info->dwLastError);
    else
        fwprintf(stderr, L"wrenkit: %hs has no export %hs (error %lu); it is older than this host\n", info->szDll,
                 info->dlp.fImportByName ? info->dlp.szProcName : "(by number)", info->dwLastError);
    fflush(stdout);
    ExitProcess(info->dwLastError ? info->dwLastError : ERROR_MOD_NOT_FOUND);
}

}  // namespace

CommandTable::CommandTable(std::initializer_list<Command> rows) {
    Table().insert(Table().end(), rows.begin(), rows.end());
}

const wchar_t* Args::option(const wchar_t* name) const {
    for (const auto& o : options)
        if (Is(o.first, name) && o.second) return o.second;
    return nullptr;
}

bool Args::flag(const wchar_t* name) const {
    for (const auto& o : options)
        if (Is(o.first, name)) return true;
    return false;
}

bool Args::letter(int i, WCHAR& out) const {
    if (ParseLetter(at(i), out)) return true;
    fwprintf(stderr, L"wrenkit: \"%ls\" is not a drive letter (D or D:)\n", at(i) ? at(i) : L"");
    return false;
}

bool Args::letterOption(const wchar_t* name, WCHAR& out) const {
    if (ParseLetter(option(name), out)) return true;
    fwprintf(stderr, L"wrenkit: %ls \"%ls\" is not a drive letter (D or D:)\n", name, option(name) ? option(name) : L"");
    return false;
}

bool Args::number(int i, DWORD& out) const {
    if (ParseNumber(at(i), out)) return true;
    fwprintf(stderr, L"wrenkit: \"%ls\" is not a number\n", at(i) ? at(i) : L"");
    return false;
}

int Args::usage() const {
    fwprintf(stderr, L"usage: wrenkit\n");
    PrintRow(stderr, *command);
    return 2;
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

bool ParseNumber(const wchar_t* text, DWORD& number, int base) {
    if (!text || !iswdigit(text[0])) return false;
    wchar_t* end = nullptr;
    errno = 0;
    const unsigned long long value = wcstoull(text, &end, base);
    if (*end || errno || value > 0xFFFFFFFFull) return false;
    number = static_cast<DWORD>(value);
    return true;
}

bool Is(const wchar_t* a, const wchar_t* b) { return a && b && _wcsicmp(a, b) == 0; }

}  // namespace wrenkit

extern "C" {
PfnDliHook __pfnDliFailureHook2 = wrenkit::DelayLoadFailed;
PfnDliHook __pfnDliNotifyHook2 = nullptr;
}

int wmain(int argc, wchar_t** argv) {
    using namespace wrenkit;
    int first = 1;
    const bool log = argc > first && Is(argv[first], L"--log");
    if (log) ++first;
    if (argc <= first) return ListAll(stderr, 2);
    if (Is(argv[first], L"--help") || Is(argv[first], L"help")) return ListAll(stdout, 0);

    for (const Command& c : Table()) {
        const wchar_t* space = wcschr(c.name, L' ');
        const int words = space ? 2 : 1;
        if (argc - first < words) continue;
        if (space ? !(wcslen(argv[first]) == static_cast<size_t>(space - c.name) &&
                      _wcsnicmp(argv[first], c.name, space - c.name) == 0 && Is(argv[first + 1], space + 1))
                  : !Is(argv[first], c.name))
            continue;
        const int skip = first + words;
        for (int i = skip; i < argc; ++i) {
            if (Is(argv[i], L"--help")) {
                fwprintf(stdout, L"usage: wrenkit\n");
                PrintRow(stdout, c);
                return 0;
            }
        }
        Args args;
        if (!ReadArgs(c, argc - skip, argv + skip, args)) return args.usage();
        if (log) CreateLog();
        return c.run(args);
    }
    return ListGroup(argv[first]);
}
