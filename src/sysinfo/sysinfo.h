// System facts: the rules behind the version, edition and environment answers,
// kept apart from the registry and version calls so they can be checked on plain data.
#pragma once

#include <windows.h>

namespace wrenkits {

// What the platform reports about the running Windows, reduced to what the display
// name depends on.
struct VersionFacts {
    DWORD major, minor, build, platform;
    const wchar_t* servicePack;  // may be empty, never null
    WORD suiteMask;
    BYTE productType;            // 1 = workstation, anything else a server
    WORD architecture;           // 0 x86, 6 Itanium, 9 x64
    bool serverR2;               // the R2 system metric is non-zero
    bool hasProductInfo;         // the edition lookup exists (6.x only asks)
    DWORD edition;               // what the edition lookup answered
};

// Appends as much of `piece` as fits and keeps `buffer` terminated; a capacity of
// 0 or one above 0x7FFFFFFF writes nothing.
void AppendBounded(wchar_t* buffer, DWORD capacity, const wchar_t* piece);
void CopyBounded(wchar_t* buffer, DWORD capacity, const wchar_t* text);

// Writes the display name of `facts` into `name`, silently cut at `capacity`.
// Returns 0, or ERROR_MOD_NOT_FOUND when a 6.x system has no edition lookup (the
// name then holds what was written up to the edition).
DWORD BuildDisplayName(const VersionFacts& facts, wchar_t* name, DWORD capacity);

// Whether the setup command line names the preinstallation environment's shell.
bool IsPeCommandLine(const wchar_t* cmdLine);

// The Qorlib build that serves an image format version.
const wchar_t* QorlibFor(WORD major, WORD minor);

// "6.1" -> 6 and 1; without a '.', the minor stays as given.
void ParseVersionText(const wchar_t* text, DWORD& major, DWORD& minor);

}  // namespace wrenkits
