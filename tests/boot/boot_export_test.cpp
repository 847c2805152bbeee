// The boot exports through the real DLL, with the editor and generator doubles.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <optional>

#include "Wrenkits.h"
#include "support/registry_fixture.h"
#include "support/secproc_fakes.h"
#include "support/tool_double.h"
#include "support/wine_env.h"

namespace {

using wrtest::ExpectLog;
// The editor and generator doubles the prefix set-up put into the system folder.
std::string SystemTool(const char* exe) { return wrtest::Narrow(wrtest::SystemDir()) + "\\" + exe; }
std::string Editor() { return SystemTool("bcdedit.exe"); }
std::string UseEditor() { return "GetBcdexePath use " + Editor(); }
// ZN_RunProcess's line for a tool that ended with `code`.
std::string Failed(const std::string& commandLine, int code) {
    return "ZN_RunProcess process " + commandLine + " result: " + std::to_string(code);
}

// A copy of the tool double under another name for the length of a test.
struct PlacedDouble {
    explicit PlacedDouble(std::wstring at) : path(std::move(at)) {
        CopyFileW((wrtest::ExeDir() + L"\\tooldouble.exe").c_str(), path.c_str(), FALSE);
    }
    ~PlacedDouble() { DeleteFileW(path.c_str()); }
    std::wstring path;
};

using Lines = std::vector<std::string>;
using Events = Lines;
Lines operator+(Lines a, const Lines& b) { return a.insert(a.end(), b.begin(), b.end()), a; }
const std::string kA = "{3b0e8a21-6c4d-11ee-8c99-0242ac120002}", kB = "{3b0e8a22-6c4d-11ee-8c99-0242ac120002}";
const std::string kC = "{3b0e8a23-6c4d-11ee-8c99-0242ac120002}", kUefiS = "S:\\EFI\\Microsoft\\Boot\\BCD";
const std::string kOrderKey = "Objects\\{9dea862c-5cdd-4e70-acc1-f32b344d4795}\\Elements\\24000001";

// Events: in order, the editor's arguments after "/store <store> " (they start with "/")
// and the other lines logged between its runs.
Events Manager(bool uefi = true, char boot = 'S') {
    const std::string path = uefi ? "\\EFI\\Microsoft\\Boot\\bootmgfw.efi" : "\\Boot\\bootmgr.exe";
    return {std::string("/set {bootmgr} device partition=") + boot + ":", "/set {bootmgr} path " + path};
}
Events Listed(const std::string& id, bool uefi = true) {
    return {"/default " + id, "/set " + id + " device partition=W:",
            "/set " + id + " path \\Windows\\system32\\winload." + (uefi ? "efi" : "exe"),
            "/set " + id + " osdevice partition=W:"};
}
Events Delete(const std::string& a, const std::string& b = "") {
    return b.empty() ? Events{"/delete " + a + " /f /cleanup"} : Delete(a) + Delete(b);
}
const Events kFallback = {"/set {bootmgr} device partition=S:", "/set {default} device partition=W:",
                          "/set {default} osdevice partition=W:"};
const Events kFallback0To1 = {kFallback[0], kFallback[1]};
const Events kMissing = {"ZN_RepairBcdEntry find " + kUefiS + " error: 3"};

enum class Store { Missing, Junk, NoDisplayOrder, DisplayOrder };  // what lies at the store path

struct RepairCase {
    const char* name;
    Store store = Store::DisplayOrder;
    Events order = {};                                     // the display order, when the store holds one
    std::vector<std::pair<std::string, int>> rules = {};  // the editor's exit code by command
    DWORD result = 0;
    bool unloadFails = false;  // the hive unload reports a failure
    Events events = {};
    WCHAR boot = L'S', system = L'W';
    DWORD uefi = 1;
    std::optional<int> generator = {};  // its exit code, when it is run
};

// Unloads, and then claims it could not.
LSTATUS WINAPI UnloadFails(HKEY root, LPCWSTR name) { return RegUnLoadKeyW(root, name), ERROR_BUSY; }

void Check(const RepairCase& c) {
    SCOPED_TRACE(c.name);
    for (const wchar_t* folder : {L"S:\\EFI", L"S:\\Boot", L"W:\\EFI", L"W:\\Boot"}) wrtest::RemoveTree(folder);
    // The editor sees the letters upper-cased ("%C").
    const char letter = char(towupper(iswalpha(c.boot) ? c.boot : c.system));
    const std::string store = letter + std::string(c.uefi ? ":\\EFI\\Microsoft\\Boot\\BCD" : ":\\Boot\\BCD");
    const std::wstring path = wrtest::Widen(store);
    if (c.store == Store::Junk) {
        wrtest::MakeDirs(path.substr(0, path.find_last_of(L'\\')));
        ASSERT_TRUE(wrtest::WriteFileBytes(path, "this is no registry hive\r\n"));
    } else if (c.store == Store::NoDisplayOrder) {
        ASSERT_TRUE(wrtest::TextHive().Key("Objects\\{a5a30fa2-3d06-4e9f-b5f4-a01df9d1fcba}").Sz("x", "y").Write(path));
    } else if (c.store == Store::DisplayOrder) {
        ASSERT_TRUE(wrtest::TextHive().Key(kOrderKey).MultiSz("Element", c.order).Write(path));
    }
    wrtest::ToolDouble tools;
    for (const auto& [pattern, code] : c.rules) tools.OnCommand("bcdedit", pattern, std::to_string(code));
    if (c.generator) tools.OnCommand("bcdboot", "", std::to_string(*c.generator));
    std::optional<wrtest::ImportHook> unload;
    if (c.unloadFails) unload.emplace("ADVAPI32.dll", "RegUnLoadKeyW", (void*)UnloadFails);
    wrtest::LogCapture log;

    EXPECT_EQ(c.result, ZN_RepairBcdEntry(c.boot, c.system, c.uefi));

    const std::string system(1, char(c.system)), generator = "bcdboot.exe " + system + ":\\Windows /s " + system + ":";
    const bool generatorFailed = c.generator.value_or(0) != 0;
    Events arguments, expected = c.result == 87 ? Events{} : Events{UseEditor()};
    if (generatorFailed) expected.push_back(Failed(generator, *c.generator));
    for (const std::string& e : c.events) {
        if (e[0] != '/') {
            expected.push_back(e);
            continue;
        }
        arguments.push_back("/store " + store + " " + e);
        // The editor answers by the first rule the command line contains, as the double does.
        const auto rule = std::find_if(c.rules.begin(), c.rules.end(), [&](const auto& r) {
            return arguments.back().find(r.first) != std::string::npos;
        });
        const int code = rule == c.rules.end() ? 0 : rule->second;
        expected.push_back(code ? Failed(Editor() + " " + arguments.back(), code)
                                : "ZN_RepairBcdEntry " + arguments.back() + " successfully");
    }
    EXPECT_EQ(arguments, tools.Arguments("bcdedit"));
    EXPECT_EQ(c.generator ? Events{generator} : Events{}, tools.Commands("bcdboot"));
    ExpectLog(log, expected);
    // Only a failed generator run leaves the privileges on; everything else drops them.
    EXPECT_EQ(generatorFailed, wrtest::ProcessPrivilegeEnabled(L"SeBackupPrivilege"));
    EXPECT_EQ(generatorFailed, wrtest::ProcessPrivilegeEnabled(L"SeRestorePrivilege"));
    // Wine leaves an empty key behind a failed load; that one is no mount of ours.
    EXPECT_TRUE(c.store == Store::Junk || !wrtest::HklmKeyExists(L"ZNRegKey"));
    wrtest::RemoveHklmKey(L"ZNRegKey");
    wrtest::SetProcessPrivilege(L"SeBackupPrivilege", false), wrtest::SetProcessPrivilege(L"SeRestorePrivilege", false);
}

TEST(RepairBcdEntry, MainPathFallbackAndRefusals) {
    const std::string longId = "{" + std::string(228, 'e') + "}", orderKey = " ZNRegKey\\" + kOrderKey;
    const Events kInvalid = {"ZN_RepairBcdEntry system partition is invalid"};
    const Events kCurrent = {"/set {current} device partition=W:"};
    const RepairCase cases[] = {
        {.name = "full UEFI repair", .order = {kA, kB, kC}, .events = Manager() + Listed(kA) + Delete(kB, kC)},
        {.name = "full BIOS repair, lower-case letters", .order = {kA, kB, kC},
         .events = Manager(false) + Listed(kA, false) + Delete(kB, kC), .boot = L's', .system = L'w', .uefi = 0},
        {.name = "one entry, nothing deleted", .order = {kA}, .events = Manager() + Listed(kA)},
        {.name = "empty display order", .order = {}, .events = Manager()},
        {.name = "a failing delete does not stop the loop", .order = {kA, kB, kC}, .rules = {{"/delete " + kB, 1}},
         .events = Manager() + Listed(kA) + Delete(kB, kC)},
        {.name = "failing path commands are ignored", .order = {kA, kB}, .rules = {{" path \\", 3}},
         .events = Manager() + Listed(kA) + Delete(kB)},
        {.name = "a failed unload goes on", .order = {kA, kB}, .unloadFails = true,
         .events = Manager() + Events{"ZN_UnLoadRegistry unload ZNRegKey error: 170"} + Listed(kA) + Delete(kB)},
        // No boot letter: fresh boot files on the system partition, whose store is used.
        {.name = "generator makes the store", .order = {kA, kB}, .events = Manager(true, 'W') + Listed(kA) + Delete(kB),
         .boot = 0, .system = L'w', .generator = 0},
        {.name = "generator fails", .store = Store::Missing, .result = 3, .boot = L'2', .system = L'w', .generator = 3},
        {.name = "identifier too long for a command", .order = {longId},
         .events = Manager() + Events{"ZN_RepairBcdEntry refused: argument text is longer than 259 characters"} +
                   kFallback},
        {.name = "store missing", .store = Store::Missing, .events = kMissing + kFallback},
        {.name = "boot manager device fails twice", .order = {kA}, .rules = {{"{bootmgr} device", 1}}, .result = 1,
         .events = {Manager()[0], Manager()[0]}},
        {.name = "store is no hive", .store = Store::Junk,
         .events = Manager() + Events{"ZN_LoadRegistry load " + kUefiS + " to ZNRegKey error: 1017"} + kFallback},
        {.name = "display order key missing", .store = Store::NoDisplayOrder,
         .events = Manager() + Events{"ZN_RepairBcdEntry open" + orderKey + " error: 2"} + kFallback},
        {.name = "display order over 520 bytes", .order = {kA, kB, kC, kA, kB, kC, kA},
         .events = Manager() + Events{"ZN_RepairBcdEntry read Element in" + orderKey + " error: 234"} + kFallback},
        {.name = "default command fails", .order = {kA, kB}, .rules = {{"/default", 1}},
         .events = Manager() + Events{Listed(kA)[0]} + kFallback},
        {.name = "device command fails", .order = {kA, kB}, .rules = {{kA + " device", 1}},
         .events = Manager() + Events{Listed(kA)[0], Listed(kA)[1]} + kFallback},
        {.name = "osdevice command fails", .order = {kA, kB}, .rules = {{kA + " osdevice", 1}},
         .events = Manager() + Listed(kA) + kFallback},
        {.name = "fallback: {default} osdevice decides", .store = Store::Missing, .rules = {{"{default} osdevice", 9}},
         .result = 9, .events = kMissing + kFallback},
        {.name = "fallback: {current} when {default} fails", .store = Store::Missing, .rules = {{"{default} device", 1}},
         .events = kMissing + kFallback0To1 + kCurrent + Events{"/set {current} osdevice partition=W:"}},
        {.name = "fallback: {current} fails too", .store = Store::Missing,
         .rules = {{"{default} device", 1}, {"{current} device", 7}}, .result = 7,
         .events = kMissing + kFallback0To1 + kCurrent},
        {.name = "system letter 0", .store = Store::Missing, .result = 87, .events = kInvalid, .system = 0},
        {.name = "system letter 1", .store = Store::Missing, .result = 87, .events = kInvalid, .system = L'1'},
        {.name = "system letter beyond a byte", .store = Store::Missing, .result = 87, .events = kInvalid, .system = 0x157},
    };
    for (const RepairCase& c : cases) Check(c);
}

DWORD WINAPI GetModuleFileNameFails(HMODULE, LPWSTR, DWORD) { return SetLastError(ERROR_ACCESS_DENIED), 0; }

TEST(GenerateBootFiles, PrefersTheGeneratorBesideTheHostThenTheSystemsOne) {
    const std::string beside = wrtest::Narrow(wrtest::ExeDir()) + "\\bcdboot.exe";
    const std::string system = SystemTool("bcdboot.exe"), fallback = "ZN_GenerateBootFiles ==> " + system;
    const std::string uefi = "D:\\windows /s S: /f UEFI /addlast", bios = "d:\\windows /s s: /f BIOS /addlast";
    const auto head = [&](const std::string& arguments) {
        return Lines{"ZN_GenerateBootFiles ==> " + beside, "ZN_GenerateBootFiles ==> " + arguments};
    };
    const auto failed = [](const std::string& program, const std::string& arguments, int code) {
        return Failed(program + " " + arguments, code);
    };
    const std::string refused = "ZN_GenerateBootFiles refused: drive letter is missing or not valid";
    // besideCode: the exit code of the generator beside the host, none there when empty.
    const struct { const char* name; WCHAR windows, target; INT uefi; const char *besideCode, *systemCode;
                   DWORD result; Lines commands, log; bool hostUnknown = false; } cases[] = {
        {"beside the host", L'D', L'S', 1, "0", "0", 0, {beside + " " + uefi}, head(uefi)},
        {"lower-case letters for BIOS stay as given", L'd', L's', 0, "0", "0", 0, {beside + " " + bios}, head(bios)},
        {"beside the host fails", L'D', L'S', 1, "4", "0", 0, {beside + " " + uefi, system + " " + uefi},
         head(uefi) + Lines{failed(beside, uefi, 4), fallback}},
        {"none beside the host", L'D', L'S', 1, "", "0", 0, {system + " " + uefi},
         head(uefi) + Lines{"ZN_RunProcess create process " + beside + " " + uefi + " error: 2", fallback}},
        {"both fail", L'd', L's', 0, "4", "6", 6, {beside + " " + bios, system + " " + bios},
         head(bios) + Lines{failed(beside, bios, 4), fallback, failed(system, bios, 6)}},
        {"unknown host path", L'D', L'S', 1, "0", "0", 2, {}, {"ZN_GenerateBootFiles call GetModuleFileNameW error: 5"},
         true},
        {"no Windows letter", L'\0', L'S', 1, "0", "0", 87, {}, {refused}},
        {"a target letter that is no ASCII letter", L'D', 0x0130, 1, "0", "0", 87, {}, {refused}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::optional<PlacedDouble> placed;
        if (*c.besideCode) placed.emplace(wrtest::Widen(beside));
        std::optional<wrtest::ImportHook> hook;
        if (c.hostUnknown) hook.emplace("KERNEL32.dll", "GetModuleFileNameW", (void*)GetModuleFileNameFails);
        wrtest::ToolDouble tools;
        tools.OnCommand("bcdboot", beside, c.besideCode).OnCommand("bcdboot", system, c.systemCode);
        wrtest::LogCapture log;
        EXPECT_EQ(c.result, ZN_GenerateBootFiles(c.windows, c.target, c.uefi));
        EXPECT_EQ(c.commands, tools.Commands("bcdboot"));
        ExpectLog(log, c.log);
    }
}

const std::string kGuid = "{6a7e3c1d-4b2f-11ee-be56-0242ac120002}";
std::string EditorFailed(const std::string& arguments, int code) {
    return Failed(Editor() + " " + arguments, code);
}

// One call of an export that runs the editor directly.
struct EditorCase {
    const char* name;
    INT copy = 0;                 // ZN_SetEfiEntry's input
    const wchar_t* id = nullptr;  // ZN_RemoveBcdEntry's input
    std::vector<std::pair<std::string, std::string>> rules = {};  // the editor's exit code by command
    DWORD result = 0;
    Lines arguments = {}, log = {};
    std::vector<std::wstring> missing = {};  // editor candidates that seem missing
    std::wstring placed = {};                // where a double of the editor lies instead
};

std::vector<std::wstring> g_missing;
DWORD WINAPI GetFileAttributesMissing(LPCWSTR path) {
    for (const auto& missing : g_missing)
        if (_wcsicmp(missing.c_str(), path) == 0) return SetLastError(ERROR_FILE_NOT_FOUND), INVALID_FILE_ATTRIBUTES;
    return GetFileAttributesW(path);
}

void Check(const EditorCase& c, const std::function<DWORD()>& call) {
    SCOPED_TRACE(c.name);
    std::optional<PlacedDouble> placed;
    std::optional<wrtest::ImportHook> hook;
    if (!c.missing.empty()) {
        g_missing = c.missing;
        placed.emplace(c.placed);
        hook.emplace("KERNEL32.dll", "GetFileAttributesW", (void*)GetFileAttributesMissing);
    }
    wrtest::ToolDouble tools;
    for (const auto& [pattern, code] : c.rules) tools.OnCommand("bcdedit", pattern, code);
    wrtest::LogCapture log;
    EXPECT_EQ(c.result, call());
    EXPECT_EQ(c.arguments, tools.Arguments("bcdedit"));
    ExpectLog(log, c.log);
}

TEST(SetEfiEntry, RunsTheEditorCommandsInOrder) {
    const std::string store = "/sysstore \\Device\\HarddiskVolume3", copy = "/copy {bootmgr} /d \"Windows Boot Manager\"";
    const std::string device = "/set {bootmgr} device partition=\\Device\\HarddiskVolume3";
    const std::string first = "/set {fwbootmgr} displayorder {bootmgr} /addfirst";
    const auto ok = [](const std::string& a) { return "ZN_SetEfiEntry --> bcdedit " + a + " successfully"; };
    const EditorCase cases[] = {
        {.name = "device set after a copy", .copy = 1, .arguments = {"", store, copy, device, first},
         .log = {UseEditor(), ok(store), ok(copy), ok(device)}},
        {.name = "device fails", .rules = {{"{bootmgr} device", "5"}}, .result = 5, .arguments = {"", store, device},
         .log = {UseEditor(), ok(store), EditorFailed(device, 5)}},
        // The "successfully" line stands for the failed listing.
        {.name = "listing fails", .rules = {{" /", "0"}, {"", "1"}}, .arguments = {"", store, device, first},
         .log = {UseEditor(), Failed(Editor(), 1), "ZN_SetEfiEntry --> run " + Editor() + " successfully",
                 ok(store), ok(device)}},
        {.name = "store switch, copy and order failures do not count", .copy = 1,
         .rules = {{"/sysstore", "2"}, {"/copy", "3"}, {"displayorder", "4"}},
         .arguments = {"", store, copy, device, first},
         .log = {UseEditor(), EditorFailed(store, 2), EditorFailed(copy, 3), ok(device), EditorFailed(first, 4)}},
    };
    for (const EditorCase& c : cases) Check(c, [&] { return ZN_SetEfiEntry(3, c.copy); });
}

// Refuses to write the copy command to the interpreter; everything else passes through.
BOOL WINAPI CopyNotWritten(HANDLE file, LPCVOID data, DWORD bytes, LPDWORD written, LPOVERLAPPED overlapped) {
    if (bytes > 13 && memcmp(data, "bcdedit /copy", 13) == 0) return SetLastError(ERROR_NO_DATA), FALSE;
    return WriteFile(file, data, bytes, written, overlapped);
}

const std::wstring kInterpreterFolder = L"C:\\wrenkits-interpreter";
UINT WINAPI InterpreterFolder(LPWSTR path, UINT chars) {
    return wcscpy_s(path, chars, kInterpreterFolder.c_str()), UINT(kInterpreterFolder.size());
}

TEST(AddEfiEntry, CopiesThroughTheInterpreterAndPlacesTheCopy) {
    // Wine's interpreter prints no echo of the command; the double prints one, whose
    // "{bootmgr}" has to be skipped: the identifier is looked for behind the command's length.
    const std::string copy = "bcdedit /copy {bootmgr} /d \"Windows Boot Manager\"", echo = copy + "\r\n";
    const std::string copied = echo + "The entry was successfully copied to " + kGuid + ".\r\n";
    const auto place = [](const std::string& id) {
        return "bcdedit /set " + id + " device partition=\\Device\\HarddiskVolume7";
    };
    const std::string newGuid = "CopyBootMgr new guid: " + kGuid, poison(MAX_PATH - 1, 'p');
    const std::string id259 = "{" + std::string(257, 'a') + "}", id260 = "{" + std::string(258, 'a') + "}";
    // id: the caller's buffer afterwards; logged: lines among the session's own.
    const struct { const char* name; std::string answer; DWORD result; bool buffer; std::string id;
                   Lines commands, logged;
                   bool writeFails = false, longBanner = false; } cases[] = {
        {"identifier into the caller's buffer", copied, 0, true, kGuid, {copy, place(kGuid)}, {newGuid}},
        {"no caller buffer", copied, 0, false, poison, {copy, place(kGuid)}, {newGuid}},
        {"answer without an identifier", echo + "The store could not be opened.\r\n", 0, true, "", {copy}, {}},
        {"identifier within the command's length", kGuid + "\r\n\r\n", 0, true, "", {copy}, {}},
        {"only the opening brace", echo + "copied to {0f3c2a5e-91b7\r\n", 0, true, "", {copy}, {}},
        {"a stray closing brace first", echo + "} then " + kGuid + "\r\n", 0, true, kGuid, {copy, place(kGuid)}, {newGuid}},
        {"identifier of 259 characters", echo + id259 + "\r\n", 0, true, id259, {copy, place(id259)}, {}},
        {"identifier of 260 characters", echo + id260 + "\r\n", 0, true, "", {copy},
         {"CopyBootMgr new guid longer than 259 characters, not used"}},
        // Only the prompt comes back: shorter than the command, so no answer at all.
        {"silent editor", "", ERROR_INVALID_PARAMETER, true, poison, {copy}, {}},
        // The interpreter's banner is left as the answer: Wine's is shorter than the command; a
        // longer one (its prompt names a longer folder) holds no braces.
        {"copy not written, short banner", copied, 87, true, poison, {}, {"WriteCmd write " + copy}, true},
        {"copy not written, long banner", copied, 0, true, "", {}, {"WriteCmd write " + copy}, true, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        wrtest::ToolDouble tools;
        tools.OnCommand("bcdedit", "/copy", "0", c.answer);
        std::optional<wrtest::ImportHook> hook;
        if (c.writeFails) hook.emplace("KERNEL32.dll", "WriteFile", (void*)CopyNotWritten);
        std::optional<wrtest::ImportHook> folder;
        if (c.longBanner) {
            wrtest::MakeDirs(kInterpreterFolder);
            CopyFileW((wrtest::SystemDir() + L"\\cmd.exe").c_str(), (kInterpreterFolder + L"\\cmd.exe").c_str(), FALSE);
            folder.emplace("KERNEL32.dll", "GetSystemDirectoryW", (void*)InterpreterFolder);
        }
        wrtest::LogCapture log;
        wchar_t id[MAX_PATH + 8];
        wmemset(id, L'p', MAX_PATH + 8);
        id[MAX_PATH - 1] = L'\0';
        EXPECT_EQ(c.result, ZN_AddEfiEntry(7, 0, c.buffer ? id : nullptr));
        EXPECT_EQ(c.commands, tools.Commands("bcdedit"));
        EXPECT_EQ(wrtest::Widen(c.id), std::wstring(id));
        EXPECT_EQ(std::wstring(8, L'p'), std::wstring(id + MAX_PATH, 8)) << "written past the buffer";
        for (const auto& line : c.logged) EXPECT_TRUE(log.Has(wrtest::Tagged(line))) << line;
    }
    wrtest::RemoveTree(kInterpreterFolder);
}

TEST(RemoveBcdEntry, DeletesTheEntryOrRefusesTheIdentifierWithTheEditorFoundFirst) {
    const std::wstring guid = wrtest::Widen(kGuid), system32 = wrtest::SystemDir() + L"\\bcdedit.exe";
    const std::wstring wow64 = system32.substr(0, 1) + L":\\Windows\\SysWOW64\\bcdedit.exe";
    const std::wstring beside = wrtest::ExeDir() + L"\\bcdedit.exe";
    const auto find = [](const std::wstring& at) { return "GetBcdexePath find " + wrtest::Narrow(at) + " error: 2"; };
    const auto use = [](const std::wstring& path) { return "GetBcdexePath use " + wrtest::Narrow(path); };
    const std::wstring fits = L"{" + std::wstring(249, L'f') + L"}", cut = L"{" + std::wstring(250, L'f') + L"}";
    const std::string del = "/delete " + kGuid, delFits = "/delete " + wrtest::Narrow(fits);
    const std::string empty = "ZN_RemoveBcdEntry refused: entry id is missing or not valid";
    const auto ok = [](const std::string& a) { return "ZN_RemoveBcdEntry --> bcdedit " + a + " successfully"; };
    const EditorCase cases[] = {
        {.name = "editor fails", .id = guid.c_str(), .rules = {{"/delete", "2"}}, .result = 2, .arguments = {del},
         .log = {UseEditor(), EditorFailed(del, 2)}},
        {.name = "null identifier", .id = nullptr, .result = ERROR_INVALID_PARAMETER, .log = {empty}},
        {.name = "empty identifier", .id = L"", .result = ERROR_INVALID_PARAMETER, .log = {empty}},
        {.name = "longest identifier that fits", .id = fits.c_str(), .arguments = {delFits},
         .log = {UseEditor(), ok(delFits)}},
        {.name = "identifier that would be cut", .id = cut.c_str(), .result = 206,
         .log = {"ZN_RemoveBcdEntry refused: argument text is longer than 259 characters"}},
        {.name = "editor in SysWOW64", .id = guid.c_str(), .arguments = {del},
         .log = {find(system32), use(wow64), ok(del)}, .missing = {system32}, .placed = wow64},
        // The last candidate is taken without a look: the hook would refuse it too.
        {.name = "editor beside the library", .id = guid.c_str(), .arguments = {del},
         .log = {find(system32), find(wow64), use(beside), ok(del)}, .missing = {system32, wow64, beside},
         .placed = beside},
    };
    for (const EditorCase& c : cases) Check(c, [&] { return ZN_RemoveBcdEntry(c.id); });
}

}  // namespace
