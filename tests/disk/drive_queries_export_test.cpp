// Where a path or a drive lives: file systems, drive types, storage adapters and the
// network connections of the fake machine.
#include "Wrenkits.h"
#include "disk/volume_device_fake.h"

namespace {

wchar_t g_text[MAX_PATH];

// The result, then the text buffer as the call left it.
std::function<std::string()> Answered(std::function<int()> call) {
    return [=] {
        wcscpy_s(g_text, L"untouched");
        const int result = call();
        return std::to_string(result) + " " + wrtest::Narrow(g_text);
    };
}
std::string Adapter(BYTE bus) {  // the descriptor, zero but for its bus type
    return std::string(offsetof(STORAGE_ADAPTER_DESCRIPTOR, BusType), '\0') + char(bus) + std::string(sizeof(STORAGE_ADAPTER_DESCRIPTOR) - 25, '\0');
}

TEST(DriveQueries, FileSystemPathTypeUsbAndRemoteDrive) {
    auto Fs = [](const std::wstring& path) { return Answered([=] { return ZN_GetFSType(path.c_str(), g_text); }); };
    auto Type = [](const wchar_t* path) { return Answered([=] { return ZN_GetPathType(path); }); };
    auto Remote = [](WCHAR letter, DWORD openError = 0) {
        return Answered([=] { return disktest::Machine::self->answers["WNetOpenEnumW 100"] = {openError}, ZN_IsRemoteDrive(letter, g_text); });
    };
    const std::string adapter = " 2d1400 in 010000000000000000000000 out 1024", batch = "|WNetEnumResourceW -1 16384", mounted = "ZN_IsRemoteDrive network path ";
    const std::string found = mounted + "\\\\nas\\backup has mounted to: Y:|" + mounted + "\\\\srv\\ipc$ has mounted to: |" + mounted + "\\\\nas\\pc1 has mounted to: z:";
    const std::string listed = found + "|" + mounted + "\\\\nas\\" + std::string(260, 'r') + " has mounted to: X:";
    disktest::Run({
        {"UNC file asks for its share", Fs(L"\\\\nas\\backup\\pc1\\file.img"), "1 NTFS", "fs \\\\nas\\backup\\", "ZN_GetFSType FS type of \\\\nas\\backup\\ is NTFS"},
        {"bare share gets its backslash", Fs(L"\\\\nas\\backup"), "1 NTFS", "fs \\\\nas\\backup\\", "ZN_GetFSType FS type of \\\\nas\\backup\\ is NTFS"},
        {"only the first character of a local path counts", Fs(L"Elephant"), "1 FAT32", "fs E:\\", "ZN_GetFSType FS type of E:\\ is FAT32"},
        {"failed volume query", Fs(L"q:"), "0 untouched", "fs q:\\", "ZN_GetFSType call GetVolumeInformationW on q:\\ error: 3"},
        {"share too long for a root is refused, not cut", Fs(L"\\\\nas\\" + std::wstring(260, L's') + L"\\f"), "0 untouched", "", "ZN_GetFSType refused: share of the path is longer than 259 characters"},
        {"two backslashes are a UNC path", Type(L"\\\\"), "1 untouched", "", ""},
        {"one character is no path", Type(L"C"), "-1 untouched", "", ""},
        {"optical drive", Type(L"D:\\setup.exe"), "2 untouched", "type D:\\", ""},
        {"USB disk reported as fixed: device upper-cased, opened without access", Type(L"e:\\img"), "3 untouched", "type e:\\|type e:\\|\\\\.\\E:" + adapter, ""},
        {"card reader counts without asking the device", Type(L"f:\\"), "3 untouched", "type f:\\|type f:\\", ""},
        {"SATA disk is local", Type(L"G:"), "0 untouched", "type G:\\|type G:\\|\\\\.\\G:" + adapter, ""},
        {"device cannot be opened", Answered([] { return ZN_IsUsbPartition(L'H'); }), "0 untouched", "type H:\\", "ZN_IsUsbPartition open device \\\\.\\H: error: 5"},
        {"local disk logs its type", Remote(L'c'), "0 untouched", "type C:\\", "ZN_IsRemoteDrive type of C is 3"},
        {"second batch, lower-case local name", Remote(L'z'), "1 \\\\nas\\pc1", "type Z:\\|WNetOpenEnumW 100" + batch + batch, found},
        {"not among the connections", Remote(L'W'), "0 untouched", "type W:\\|WNetOpenEnumW 100" + batch + batch + batch + batch, listed},
        {"remote name too long is refused, not cut", Remote(L'X'), "0 untouched", "type X:\\|WNetOpenEnumW 100" + batch + batch + batch, listed + "|ZN_IsRemoteDrive refused: remote name is longer than 259 characters"},
        {"enumeration cannot be opened", Remote(L'V', ERROR_NO_NETWORK), "0 untouched", "type V:\\|WNetOpenEnumW 100", ""},
    }, [](disktest::Machine& m) {
        m.answers = {{"type C:\\", {DRIVE_FIXED}}, {"type D:\\", {DRIVE_CDROM}}, {"type e:\\", {DRIVE_FIXED}}, {"type f:\\", {DRIVE_REMOVABLE}},
                     {"type G:\\", {DRIVE_FIXED}}, {"type H:\\", {DRIVE_FIXED}}, {"fs \\\\nas\\backup\\", {0, "NTFS"}}, {"fs E:\\", {0, "FAT32"}}, {"fs q:\\", {3}},
                     {"open \\\\.\\E: 0", {}}, {"\\\\.\\E: 2d1400", {0, Adapter(BusTypeUsb)}}, {"open \\\\.\\G: 0", {}},
                     {"\\\\.\\G: 2d1400", {0, Adapter(BusTypeSata)}}, {"open \\\\.\\H: 0", {ERROR_ACCESS_DENIED}}};
        for (const char* remote : {"type V:\\", "type W:\\", "type X:\\", "type Z:\\"}) m.answers[remote] = {DRIVE_REMOTE};
        m.connections = {{{L"\\\\nas\\backup", L"Y:"}, {L"\\\\srv\\ipc$", L""}}, {{L"\\\\nas\\pc1", L"z:"}}, {{L"\\\\nas\\" + std::wstring(260, L'r'), L"X:"}}};
    });
}

}  // namespace
