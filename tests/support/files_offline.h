// Offline installations as Windows treats them, for tests that read back what the
// library wrote into a mounted hive, and a journal of the file calls a tree walk makes.
#pragma once

#include <windows.h>

#include <set>
#include <string>
#include <vector>

#include "support/import_hook.h"

namespace wrtest {

// While alive, Wrenkits.dll's hive loads and unloads are journaled ("load software",
// "unload ZNRegKey") and every unload first saves the hive to its file, as Windows
// does and Wine does not.
class SavingHiveCalls {
public:
    SavingHiveCalls();
    std::vector<std::string> calls() const;

private:
    ImportHook load_, unload_;
};

// Every key ("Policies\System") and value ("Shutdown\ReasonCode = dword:85000000")
// of a hive file, read through a mount of its own.
std::set<std::string> DumpHive(const std::wstring& file);
// Every file and folder under `root` (relative paths, folders ending in "\").
std::set<std::string> ListTree(const std::wstring& root);
// Empties a mapped drive, leaving its root (removing the root would unmap the drive).
void ClearDrive(wchar_t letter);
// The lines of `a` that `b` lacks, in order.
std::vector<std::string> Minus(const std::set<std::string>& a, const std::set<std::string>& b);

}  // namespace wrtest
