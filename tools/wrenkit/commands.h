// The host's command table: each subsystem's file registers its rows at start-up, so a
// new subsystem adds a file, not branches in main.
//
// A row's usage text is also its argument grammar, checked before the handler runs:
// words in [brackets] are optional, "..." repeats, "--name VALUE" is an option with a
// value and "--name" alone a switch; an option without brackets is required. Words the
// usage does not name, a missing word or a missing value print the usage and exit 2
// without the DLL being loaded. Handlers check only what the words must look like.
#pragma once

#include <windows.h>

#include <initializer_list>
#include <utility>
#include <vector>

namespace wrenkit {

struct Command;

// The words after a command's name: positional words in order, options by name.
struct Args {
    const Command* command = nullptr;
    std::vector<const wchar_t*> positional;
    std::vector<std::pair<const wchar_t*, const wchar_t*>> options;  // name, value (null for a switch)

    int count() const { return static_cast<int>(positional.size()); }
    const wchar_t* at(int i) const { return i >= 0 && i < count() ? positional[i] : nullptr; }
    const wchar_t* option(const wchar_t* name) const;  // "--name VALUE": VALUE, or null
    bool flag(const wchar_t* name) const;             // "--name" given
    // The positional word i, or an option's value, as a drive letter ("D" or "D:", any
    // case) or a decimal number; false (after saying why) when it is not one.
    bool letter(int i, WCHAR& out) const;
    bool letterOption(const wchar_t* name, WCHAR& out) const;
    bool number(int i, DWORD& out) const;
    // Prints this command's usage on standard error and returns 2.
    int usage() const;
};

struct Command {
    const wchar_t* name;   // one or two words: L"service start"
    const wchar_t* usage;  // argument grammar: L"NAME [--type N]"
    const wchar_t* help;   // one line
    int (*run)(const Args&);
};

struct CommandTable {
    CommandTable(std::initializer_list<Command> rows);
};

// Prints "result N" and returns N: the process exit code is the export's result.
int Result(DWORD code);
// "D" or "D:" (any case) gives 'D'; anything else is no letter.
bool ParseLetter(const wchar_t* text, WCHAR& letter);
// Digits only (base 10), or with base 0 also "0x1F"; no sign, nothing after.
bool ParseNumber(const wchar_t* text, DWORD& number, int base = 10);
bool Is(const wchar_t* a, const wchar_t* b);

}  // namespace wrenkit
