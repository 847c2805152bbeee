// The host's command table: each subsystem's file registers its rows at start-up, so a
// new subsystem adds a file, not branches in main.
#pragma once

#include <windows.h>

#include <initializer_list>

namespace wrenkit {

// The words after a command's name.
struct Args {
    int count;
    wchar_t** values;
    const wchar_t* at(int i) const { return i >= 0 && i < count ? values[i] : nullptr; }
    const wchar_t* option(const wchar_t* name) const;  // "--name VALUE"
    bool flag(const wchar_t* name) const;             // "--name"
};

struct Command {
    const wchar_t* name;   // one or two words: L"service start"
    const wchar_t* usage;  // argument synopsis: L"NAME"
    const wchar_t* help;   // one line
    int (*run)(const Args&);
};

struct CommandTable {
    CommandTable(std::initializer_list<Command> rows);
};

// Prints the command's usage and returns 2: the arguments were wrong, the DLL was not called.
int Usage(const Command& command);
// The same for the command of that name, from inside its handler.
int Usage(const wchar_t* name);
// Prints "result N" and returns N: the process exit code is the export's result.
int Result(DWORD code);
// "D" or "D:" (any case) gives 'D'; anything else is no letter.
bool ParseLetter(const wchar_t* text, WCHAR& letter);
bool Is(const wchar_t* a, const wchar_t* b);

}  // namespace wrenkit
