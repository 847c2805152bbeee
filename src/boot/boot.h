// Boot configuration: the editor's location, the boot-manager copy and the pieces
// of the store repair that need no OS.
#pragma once

#include <stdarg.h>
#include <stddef.h>
#include <windows.h>

#include "boot/guid_extract.h"
#include "frame/text.h"

// Writes the boot configuration editor's path into `path` (260 characters): the
// system folder's, else the system drive's SysWOW64 one, else the one beside this
// library (that last candidate is taken without looking for it). Always 0.
DWORD GetBcdexePath(LPWSTR path);

// Copies {bootmgr} through the command interpreter and places the copy on
// \Device\HarddiskVolume<volume>. The copy's identifier goes to `newEntryId`
// (260 characters), empty when the answer held none. 0 once the interpreter
// answered more than the command's length, else 87.
DWORD CopyBootMgr(int volume, LPWSTR newEntryId);

namespace wrenkits {

// Formats an editor argument text into a 260-character buffer. A text that would
// be cut is refused: the refusal is logged under `user` and false is returned, so
// that no shortened command is ever run.
bool FormatEditorArguments(const char* user, wchar_t (&out)[kPathChars], const wchar_t* format, ...);
bool FormatEditorArgumentsV(const char* user, wchar_t (&out)[kPathChars], const wchar_t* format, va_list args);

}  // namespace wrenkits
