// The product's surroundings through the real DLL under Wine: the preinstallation
// environment test, product keys and settings, the drivers pack and the image library.
#include "Wrenkits.h"
#include "sysinfo/sysinfo_test_support.h"

using namespace sitest;
using wrtest::Narrow;

namespace {

const std::wstring kBin = wrtest::ExeDir(), kAbove = kBin.substr(0, kBin.rfind(L'\\'));
const std::wstring kProduct = L"SOFTWARE\\Zenthra\\Paravane\\";
const wchar_t* const kQorlibs[] = {L"Qorlib_8.dll", L"Qorlib_9_0.dll", L"Qorlib_9_1.dll", L"Qorlib.dll"};

// Drops every load of the image libraries (the library never unloads them itself), and the settings files.
void Unload() {
    for (const wchar_t* name : kQorlibs)
        while (HMODULE m = GetModuleHandleW(name)) FreeLibrary(m);
    for (const std::wstring& dir : {kBin, kAbove}) DeleteFileW((dir + L"\\Dispatch.ini").c_str());
}

TEST(ProductEnvironment, PeShellLanguageSettingsAndProductKeysWithTheirDefaults) {
    const std::string host = "ZN_GetLanguageID ini file: " + Narrow(kBin) + "\\Dispatch.ini";
    const std::string client = Narrow(kProduct) + "Client", server = Narrow(kProduct) + "Server";
    const std::string noType = "ZN_GetProductType open registry SOFTWARE\\Zenthra\\Paravane\\Client error: 2";
    // SYSTEM\Setup "CmdLine"; the Client and Server "Language" (-1: no key, 0: no value); the Client's "ProductName"
    // and "PRODUCTTYPE" and the settings' "useType" (nullptr: none); whether the image library is loaded
    // (the settings then lie above its folder); then the answers of the four calls and the log.
    const struct { const wchar_t* cmdLine; int clientLanguage, serverLanguage; const wchar_t *clientProduct, *clientType, *useType; bool qorlib; BOOL underPe; DWORD language; std::wstring product; DWORD type; Lines log; } rows[] = {
        {L"winpeshl.exe", 1031, 1036, L"Paravane Pro", L"42abc", nullptr, false, TRUE, 1031, L"Paravane Pro", 42, {host}},
        {L"winpeshl.exe x", 1031, 1036, L"Paravane Pro", L"7", L"1", false, FALSE, 1036, L"Paravane Pro", 7, {host}},
        {L"PECMD.EXE x", 1031, 1036, nullptr, L"x", L"3", true, TRUE, 1036, L"Lumenkeep", 0, {"ZN_GetLanguageID ini file: " + Narrow(kAbove) + "\\Dispatch.ini", "ZN_GetProductName query Language in " + client + " error: 2"}},
        {L"pecmd.ex", -1, -1, nullptr, nullptr, nullptr, false, FALSE, 1033, L"Lumenkeep", 0, {host, "ZN_GetLanguageID open key " + client + " error: 2", noType}},
        {nullptr, -1, 0, nullptr, nullptr, L"5", false, FALSE, 1033, L"Server Edition", 0, {host, "ZN_GetLanguageID query Language in " + server + " error: 2", noType}},
        {L"WINPESHL.EXE", 0, -1, nullptr, nullptr, nullptr, false, TRUE, 1033, L"Lumenkeep", 0, {host, "ZN_GetLanguageID query Language in " + client + " error: 2", "ZN_GetProductName query Language in " + client + " error: 2", "ZN_GetProductType query PRODUCTTYPE from registry error: 2"}},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(Narrow(r.cmdLine ? r.cmdLine : L"<no CmdLine>"));
        MadeKeys keys{{L"SOFTWARE\\Zenthra", L"SYSTEM\\Setup"}};
        Unload();
        if (r.useType) wrtest::WriteFileBytes((r.qorlib ? kAbove : kBin) + L"\\Dispatch.ini", "[OPERATE_START]\r\nuseType=" + Narrow(r.useType) + "\r\n");
        if (r.qorlib) {
            CopyFileW((kBin + L"\\qorlib_double.dll").c_str(), (kBin + L"\\Qorlib.dll").c_str(), FALSE);
            ASSERT_TRUE(LoadLibraryW((kBin + L"\\Qorlib.dll").c_str()));
        }
        if (r.cmdLine) Put(L"SYSTEM\\Setup", L"CmdLine", r.cmdLine);
        if (r.clientLanguage >= 0) Put(kProduct + L"Client", r.clientLanguage ? L"Language" : nullptr, DWORD(r.clientLanguage));
        if (r.serverLanguage >= 0) Put(kProduct + L"Server", L"ProductName", L"Server Edition");
        if (r.serverLanguage > 0) Put(kProduct + L"Server", L"Language", DWORD(r.serverLanguage));
        if (r.clientProduct) Put(kProduct + L"Client", L"ProductName", r.clientProduct);
        if (r.clientType) Put(kProduct + L"Client", L"PRODUCTTYPE", r.clientType);
        wrtest::LogCapture log;
        EXPECT_EQ(r.underPe, ZN_IsUnderPE());
        EXPECT_EQ(r.language, ZN_GetLanguageID());
        wchar_t product[260];
        EXPECT_EQ(0u, ZN_GetProductName(product));
        EXPECT_EQ(r.product, product);
        EXPECT_EQ(r.type, ZN_GetProductType());
        EXPECT_EQ(Tagged(r.log), log.Messages());
        Unload();
    }
}

TEST(ProductEnvironment, ImageLibraryIsChosenByVersionAndReadsTheRecordThroughItsSlots) {
    const std::string load = "ZN_CreateInterface try to load " + Narrow(kBin) + "\\";
    const struct { WORD major, minor; DWORD iid, result; const char* dll; Lines more; } rows[] = {
        {8, 7, 5, 0, "Qorlib_8.dll", {}}, {9, 0, 5, 0, "Qorlib_9_0.dll", {}}, {9, 2, 5, 0, "Qorlib_9_0.dll", {}},
        {9, 3, 5, 0, "Qorlib_9_1.dll", {}}, {9, 4, 5, 0, "Qorlib.dll", {}},
        {10, 0, 7, 0x80004002, "Qorlib.dll", {"ZN_CreateInterface create image file interface error: 0x80004002"}},
    };
    for (const wchar_t* n : kQorlibs) CopyFileW((kBin + L"\\qorlib_double.dll").c_str(), (kBin + L"\\" + n).c_str(), 0);
    for (const auto& r : rows) {
        SCOPED_TRACE(testing::Message() << r.major << "." << r.minor << " interface " << r.iid);
        Unload();
        wrtest::LogCapture log;
        void* object = &log;
        EXPECT_EQ(r.result, ZN_CreateInterface(r.major, r.minor, r.iid, &object));
        std::string loaded;
        for (const wchar_t* n : kQorlibs) loaded += GetModuleHandleW(n) ? Narrow(n) : "";
        EXPECT_EQ(r.dll, loaded) << "the one library chosen, and it stays loaded";
        EXPECT_EQ(r.result == 0, object != nullptr);
        if (object) (*reinterpret_cast<void(WINAPI***)(void*)>(object))[0](object);
        EXPECT_EQ(Tagged(Lines{load + r.dll} + r.more), log.Messages());
    }

    const std::wstring image = kBin + L"\\image.qor";
    const struct { const char* content; WORD major, minor; std::string line; } images[] = {
        {"10 2 0", 10, 2, "ZN_GetImageVersion " + Narrow(image) + " version: 10 2"},
        {"10 2 c0000001", 9, 3, "ZN_GetImageVersion GetImgFileInfo(" + Narrow(image) + ") failed, error: 0xc0000001"},
        {nullptr, 9, 3, "ZN_CreateInterface load " + Narrow(kBin) + "\\Qorlib.dll error: 126"},
    };
    for (const auto& r : images) {
        SCOPED_TRACE(r.line);
        Unload();
        if (r.content) wrtest::WriteFileBytes(image, r.content);
        else DeleteFileW((kBin + L"\\Qorlib.dll").c_str());
        wrtest::LogCapture log;
        WORD minor = 0;
        EXPECT_EQ(r.major, ZN_GetImageVersion(image.c_str(), &minor));
        EXPECT_EQ(r.minor, minor);
        EXPECT_EQ(wrtest::Tagged(r.line), log.Messages().back());
        const HMODULE q = GetModuleHandleW(L"Qorlib.dll");
        ASSERT_EQ(r.content != nullptr, q != nullptr) << "the newest library reads every image";
        const auto live = q ? reinterpret_cast<LONG(WINAPI*)()>(reinterpret_cast<void*>(GetProcAddress(q, "QOLiveObjects"))) : nullptr;
        EXPECT_EQ(0, live ? live() : 0) << "the object is released whatever the outcome";
    }
    Unload();
    for (const wchar_t* n : kQorlibs) DeleteFileW((kBin + L"\\" + n).c_str());
    DeleteFileW(image.c_str());
}

TEST(ProductEnvironment, DriversPackIsLookedForBesideTheLibraryThenTheClientThenTheConsole) {
    const std::wstring own = kBin + L"\\Bootres\\DriversPack", client = kAbove + L"\\Client\\Bootres\\DriversPack", console = kAbove + L"\\Console\\Bootres\\DriversPack";
    const std::wstring roots[] = {kBin + L"\\Bootres", kAbove + L"\\Client", kAbove + L"\\Console"};
    const struct { std::vector<std::wstring> present; DWORD result; std::wstring path; std::string line; } rows[] = {
        {{own, client}, 0, own, "get path: " + Narrow(own)},
        {{client, console}, 0, client, "get path: " + Narrow(client)},
        {{console}, 0, console, "get path: " + Narrow(console)},
        {{}, 2, console, "the Bootres folder can not found!"},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.line);
        for (const auto& dir : roots) wrtest::RemoveTree(dir);
        for (const auto& dir : r.present) wrtest::MakeDirs(dir);
        wrtest::LogCapture log;
        char folder[260];
        memset(folder, 'x', sizeof folder);
        EXPECT_EQ(r.result, ZN_GetUniversalDriversPack(folder));
        EXPECT_EQ(Narrow(r.path), folder);
        EXPECT_EQ(r.result ? 'x' : '\0', folder[r.path.size() + 1]) << "a found path ends in two zeros";
        EXPECT_EQ(Tagged({"ZN_GetUniversalDriversPack " + r.line}), log.Messages());
    }
    for (const auto& dir : roots) wrtest::RemoveTree(dir);
}

}  // namespace
