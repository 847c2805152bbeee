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

}  // namespace
