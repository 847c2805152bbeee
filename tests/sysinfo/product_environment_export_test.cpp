// The product's surroundings through the real DLL under Wine: the preinstallation
// environment test, product keys and settings, the drivers pack and the image library.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "Wrenkits.h"
#include "support/log_capture.h"
#include "support/wine_env.h"

namespace {

using wrtest::Narrow;
const std::wstring kBin = wrtest::ExeDir(), kAbove = kBin.substr(0, kBin.rfind(L'\\'));
const std::string kBinA = Narrow(kBin), kAboveA = Narrow(kAbove);

// Drops every load of a module the library made (it never unloads them itself).
void Unload(const wchar_t* name) {
    while (HMODULE m = GetModuleHandleW(name)) FreeLibrary(m);
}

// The product's keys exist only for the length of a test.
struct ProductKeys {
    ProductKeys() { RegDeleteTreeW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Zenthra"); }
    ~ProductKeys() { RegDeleteTreeW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Zenthra"); }
    static void Set(const wchar_t* side, const wchar_t* name, DWORD type, const void* data, DWORD bytes) {
        RegSetKeyValueW(HKEY_LOCAL_MACHINE, (std::wstring(L"SOFTWARE\\Zenthra\\Paravane\\") + side).c_str(), name,
                        type, data, bytes);
    }
};

// Sets (or, unset, removes) one HKLM value for the length of a case and puts the
// prefix's own value back afterwards.
class HklmValue {
public:
    HklmValue(const wchar_t* key, const wchar_t* name) : key_(key), name_(name) {
        DWORD size = sizeof saved_;
        had_ = RegGetValueW(HKEY_LOCAL_MACHINE, key, name, RRF_RT_ANY, &type_, saved_, &size) == ERROR_SUCCESS;
        savedBytes_ = size;
    }
    ~HklmValue() {
        if (had_) RegSetKeyValueW(HKEY_LOCAL_MACHINE, key_, name_, type_, saved_, savedBytes_);
        else RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, key_, name_);
    }
    void Set(const std::optional<std::wstring>& text) {
        if (!text) RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, key_, name_);
        else RegSetKeyValueW(HKEY_LOCAL_MACHINE, key_, name_, REG_SZ, text->c_str(),
                             DWORD((text->size() + 1) * sizeof(wchar_t)));
    }

private:
    const wchar_t *key_, *name_;
    bool had_;
    DWORD type_ = 0, savedBytes_ = 0;
    BYTE saved_[1024] = {};
};

TEST(ProductEnvironment, PreinstallationShellIsTheWholeNameOrPecmdWithArguments) {
    struct Row { std::optional<std::wstring> cmdLine; BOOL underPe; };
    const Row rows[] = {
        {L"winpeshl.exe", TRUE}, {L"WINPESHL.EXE", TRUE}, {L"winpeshl.exe x", FALSE},
        {L"PECMD.EXE x", TRUE},  {L"pecmd.ex", FALSE},    {L"setup.exe -newsetup", FALSE}, {std::nullopt, FALSE},
    };
    HklmValue cmdLine(L"SYSTEM\\Setup", L"CmdLine");
    wrtest::LogCapture log;
    for (const Row& r : rows) {
        SCOPED_TRACE(wrtest::Narrow(r.cmdLine.value_or(L"<no CmdLine>")));
        cmdLine.Set(r.cmdLine);
        EXPECT_EQ(r.underPe, ZN_IsUnderPE());
    }
    EXPECT_EQ(std::vector<std::string>{}, log.Messages()) << "the answer is silent";
}

struct ProductRow {
    const char* name;
    int clientLanguage, serverLanguage;  // -1: no key; 0: the key without "Language"
    const wchar_t* clientProduct;  // nullptr: no value; the Server key then holds "Server Edition"
    const char* clientType;
    const wchar_t* ini;            // Dispatch.ini's text, beside the host or, with `qorlib`, above it
    bool qorlib;
    DWORD language;
    std::wstring product;
    DWORD type;
    std::vector<std::string> lines;
};

TEST(ProductEnvironment, LanguageFollowsTheSettingsFileAndProductKeysFallBackToDefaults) {
    const std::string hostIni = "ZN_GetLanguageID ini file: " + kBinA + "\\Dispatch.ini";
    const std::string aboveIni = "ZN_GetLanguageID ini file: " + kAboveA + "\\Dispatch.ini";
    const std::string client = "SOFTWARE\\Zenthra\\Paravane\\Client", server = "SOFTWARE\\Zenthra\\Paravane\\Server";
    const ProductRow rows[] = {
        {"no settings file: client key", 1031, 1036, L"Paravane Pro", "42abc", nullptr, false, 1031, L"Paravane Pro", 42,
         {hostIni}},
        {"useType 1 beside the host: server key", 1031, 1036, L"Paravane Pro", "7", L"[OPERATE_START]\r\nuseType=1\r\n",
         false, 1036, L"Paravane Pro", 7, {hostIni}},
        {"Qorlib loaded: settings above its folder", 1031, 1036, nullptr, "x", L"[OPERATE_START]\r\nuseType=3\r\n", true,
         1036, L"Lumenkeep", 0,
         {aboveIni, "ZN_GetProductName query Language in " + client + " error: 2"}},
        {"no keys at all", -1, -1, nullptr, nullptr, nullptr, false, 1033, L"Lumenkeep", 0,
         {hostIni, "ZN_GetLanguageID open key " + client + " error: 2",
          "ZN_GetProductType open registry SOFTWARE\\Zenthra\\Paravane\\Client error: 2"}},
        {"server key without Language", -1, 0, nullptr, nullptr, L"[OPERATE_START]\r\nuseType=5\r\n", false,
         1033, L"Server Edition", 0, {hostIni, "ZN_GetLanguageID query Language in " + server + " error: 2",
          "ZN_GetProductType open registry SOFTWARE\\Zenthra\\Paravane\\Client error: 2"}},
        {"client key without values", 0, -1, nullptr, nullptr, nullptr, false, 1033, L"Lumenkeep", 0,
         {hostIni, "ZN_GetLanguageID query Language in " + client + " error: 2",
          "ZN_GetProductName query Language in " + client + " error: 2",
          "ZN_GetProductType query PRODUCTTYPE from registry error: 2"}},
    };
    for (const ProductRow& r : rows) {
        SCOPED_TRACE(r.name);
        ProductKeys keys;
        Unload(L"Qorlib.dll");
        for (const std::wstring& dir : {kBin, kAbove}) DeleteFileW((dir + L"\\Dispatch.ini").c_str());
        if (r.ini) wrtest::WriteFileBytes((r.qorlib ? kAbove : kBin) + L"\\Dispatch.ini", Narrow(r.ini));
        if (r.qorlib) {
            CopyFileW((kBin + L"\\qorlib_double.dll").c_str(), (kBin + L"\\Qorlib.dll").c_str(), FALSE);
            ASSERT_TRUE(LoadLibraryW((kBin + L"\\Qorlib.dll").c_str()));
        }
        if (r.clientLanguage >= 0) ProductKeys::Set(L"Client", L"Language", REG_DWORD, &r.clientLanguage, 4);
        if (r.clientLanguage == 0) RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Zenthra\\Paravane\\Client", L"Language");
        if (r.serverLanguage >= 0) ProductKeys::Set(L"Server", L"ProductName", REG_SZ, L"Server Edition", 30);
        if (r.serverLanguage > 0) ProductKeys::Set(L"Server", L"Language", REG_DWORD, &r.serverLanguage, 4);
        if (r.clientProduct)
            ProductKeys::Set(L"Client", L"ProductName", REG_SZ, r.clientProduct, DWORD(wcslen(r.clientProduct) * 2 + 2));
        if (r.clientType)
            RegSetKeyValueA(HKEY_LOCAL_MACHINE, client.c_str(), "PRODUCTTYPE", REG_SZ, r.clientType, DWORD(strlen(r.clientType) + 1));
        wrtest::LogCapture log;
        EXPECT_EQ(r.language, ZN_GetLanguageID());
        wchar_t product[260];
        EXPECT_EQ(0u, ZN_GetProductName(product));
        EXPECT_EQ(r.product, product);
        EXPECT_EQ(r.type, ZN_GetProductType());
        std::vector<std::string> lines;
        for (const std::string& l : r.lines) lines.push_back(wrtest::Tagged(l));
        EXPECT_EQ(lines, log.Messages());
        Unload(L"Qorlib.dll");
        for (const std::wstring& dir : {kBin, kAbove}) DeleteFileW((dir + L"\\Dispatch.ini").c_str());
    }
}

TEST(ProductEnvironment, ImageLibraryIsChosenByVersionAndReadsTheRecordThroughItsSlots) {
    const wchar_t* const names[] = {L"Qorlib_8.dll", L"Qorlib_9_0.dll", L"Qorlib_9_1.dll", L"Qorlib.dll"};
    const auto loaded = [&] {
        std::wstring which;
        for (const wchar_t* n : names) if (GetModuleHandleW(n)) which += n;
        return which;
    };
    const std::string load = "ZN_CreateInterface try to load " + kBinA + "\\";
    struct Row { WORD major, minor; DWORD iid; DWORD result; const wchar_t* dll; std::vector<std::string> lines; };
    const Row rows[] = {
        {8, 7, 5, 0, L"Qorlib_8.dll", {load + "Qorlib_8.dll"}},
        {9, 0, 5, 0, L"Qorlib_9_0.dll", {load + "Qorlib_9_0.dll"}},
        {9, 2, 5, 0, L"Qorlib_9_0.dll", {load + "Qorlib_9_0.dll"}},
        {9, 3, 5, 0, L"Qorlib_9_1.dll", {load + "Qorlib_9_1.dll"}},
        {9, 4, 5, 0, L"Qorlib.dll", {load + "Qorlib.dll"}},
        {10, 0, 7, 0x80004002, L"Qorlib.dll",
         {load + "Qorlib.dll", "ZN_CreateInterface create image file interface error: 0x80004002"}},
    };
    for (const wchar_t* n : names) CopyFileW((kBin + L"\\qorlib_double.dll").c_str(), (kBin + L"\\" + n).c_str(), FALSE);
    for (const Row& r : rows) {
        SCOPED_TRACE(testing::Message() << r.major << "." << r.minor << " interface " << r.iid);
        for (const wchar_t* n : names) Unload(n);
        wrtest::LogCapture log;
        void* object = reinterpret_cast<void*>(1);
        EXPECT_EQ(r.result, ZN_CreateInterface(r.major, r.minor, r.iid, &object));
        EXPECT_EQ(r.result == 0, object != nullptr);
        EXPECT_EQ(r.dll, loaded()) << "the library stays loaded";
        if (object) (*reinterpret_cast<void (WINAPI***)(void*)>(object))[0](object);
        std::vector<std::string> lines;
        for (const std::string& l : r.lines) lines.push_back(wrtest::Tagged(l));
        EXPECT_EQ(lines, log.Messages());
    }

    const std::wstring image = kBin + L"\\image.qor";
    struct ImageRow { const char* content; WORD major, minor; const char* line; };
    const ImageRow images[] = {
        {"10 2 0", 10, 2, "ZN_GetImageVersion {image} version: 10 2"},
        {"10 2 c0000001", 9, 3, "ZN_GetImageVersion GetImgFileInfo({image}) failed, error: 0xc0000001"},
        {nullptr, 9, 3, "ZN_CreateInterface load {dll} error: 126"},
    };
    for (const ImageRow& r : images) {
        SCOPED_TRACE(r.line);
        for (const wchar_t* n : names) Unload(n);
        if (r.content) wrtest::WriteFileBytes(image, r.content);
        else DeleteFileW((kBin + L"\\Qorlib.dll").c_str());
        wrtest::LogCapture log;
        WORD minor = 0;
        EXPECT_EQ(r.major, ZN_GetImageVersion(image.c_str(), &minor));
        EXPECT_EQ(r.minor, minor);
        std::string line = r.line;
        line.replace(line.find('{'), line.find('}') - line.find('{') + 1, r.content ? Narrow(image) : kBinA + "\\Qorlib.dll");
        EXPECT_EQ(wrtest::Tagged(line), log.Messages().back());
        using Live = LONG(WINAPI*)();
        if (HMODULE q = GetModuleHandleW(L"Qorlib.dll")) {
            EXPECT_EQ(0, reinterpret_cast<Live>(reinterpret_cast<void*>(GetProcAddress(q, "QOLiveObjects")))())
                << "the object is released whatever the outcome";
        }
    }
    for (const wchar_t* n : names) Unload(n), DeleteFileW((kBin + L"\\" + n).c_str());
    DeleteFileW(image.c_str());
}

TEST(ProductEnvironment, DriversPackIsLookedForBesideTheLibraryThenTheClientThenTheConsole) {
    const std::wstring own = kBin + L"\\Bootres\\DriversPack", client = kAbove + L"\\Client\\Bootres\\DriversPack",
                       console = kAbove + L"\\Console\\Bootres\\DriversPack";
    struct Row { std::vector<std::wstring> present; DWORD result; std::wstring path; std::string line; };
    const Row rows[] = {
        {{own, client}, 0, own, "get path: " + Narrow(own)},
        {{client, console}, 0, client, "get path: " + Narrow(client)},
        {{console}, 0, console, "get path: " + Narrow(console)},
        {{}, 2, console, "the Bootres folder can not found!"},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.line);
        for (const auto& dir : {kBin + L"\\Bootres", kAbove + L"\\Client", kAbove + L"\\Console"}) wrtest::RemoveTree(dir);
        for (const auto& dir : r.present) wrtest::MakeDirs(dir);
        wrtest::LogCapture log;
        char folder[260];
        memset(folder, 'x', sizeof folder);
        EXPECT_EQ(r.result, ZN_GetUniversalDriversPack(folder));
        EXPECT_EQ(Narrow(r.path), folder);
        EXPECT_EQ(r.result ? 'x' : '\0', folder[r.path.size() + 1]) << "a found path ends in two zeros";
        EXPECT_EQ(std::vector<std::string>{wrtest::Tagged("ZN_GetUniversalDriversPack " + r.line)}, log.Messages());
    }
    for (const auto& dir : {kBin + L"\\Bootres", kAbove + L"\\Client", kAbove + L"\\Console"}) wrtest::RemoveTree(dir);
}

}  // namespace
