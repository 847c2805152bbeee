// Commands for services and kernel drivers.
#include <stdio.h>

#include <string>

#include "Wrenkits.h"
#include "commands.h"

namespace {

using namespace wrenkit;

// The driver exports take text in the system code page.
std::string Narrow(const wchar_t* text) {
    const int bytes = WideCharToMultiByte(CP_ACP, 0, text, -1, nullptr, 0, nullptr, nullptr);
    std::string out(bytes > 0 ? bytes : 1, '\0');
    if (bytes > 0) WideCharToMultiByte(CP_ACP, 0, text, -1, out.data(), bytes, nullptr, nullptr);
    return out;
}

int Installed(const Args& a) { return Result(ZN_ServiceInstalled(a.at(0))); }
int Running(const Args& a) { return Result(ZN_ServiceIsRunning(a.at(0))); }
int Start(const Args& a) { return Result(ZN_StartService(a.at(0))); }
int Stop(const Args& a) { return Result(ZN_StopService(a.at(0))); }
int Remove(const Args& a) { return Result(ZN_RemoveService(a.at(0))); }

int Install(const Args& a) {
    DWORD type = 0;
    if (!a.option(L"--type")) return Result(ZN_InstallService(a.at(0), a.at(1), a.at(2)));
    if (!ParseNumber(a.option(L"--type"), type, 0)) {
        fwprintf(stderr, L"wrenkit: --type \"%ls\" is not a number\n", a.option(L"--type"));
        return a.usage();
    }
    return Result(ZN_InstallServiceEx(a.at(0), a.at(1), a.at(2), type));
}

int Control(const Args& a) {
    DWORD operation = 0;
    if (!a.number(1, operation) || operation > 0xFFFF) return a.usage();
    return Result(ZN_ControlService(a.at(0), static_cast<WORD>(operation)));
}

int Add(const Args& a) {
    WCHAR letter = 0;
    if (!a.letterOption(L"--drive", letter)) return a.usage();
    return Result(ZN_AddService(letter, a.option(L"--name"), a.option(L"--image"), a.option(L"--display"),
                                a.option(L"--description")));
}

int LoadDriver(const Args& a) {
    return Result(ZN_LoadNtDriver(Narrow(a.at(0)).c_str(), Narrow(a.at(1)).c_str()));
}

int RemoveDriver(const Args& a) { return Result(ZN_RemoverNtDriver(Narrow(a.at(0)).c_str())); }

const CommandTable kTable{
    {L"service installed", L"NAME", L"1 when the service exists, else 0", Installed},
    {L"service running", L"NAME", L"1 when the service runs or is starting, else 0", Running},
    {L"service start", L"NAME", L"start a service and wait while it reports progress", Start},
    {L"service stop", L"NAME", L"stop a service after its active dependants (up to 30 s)", Stop},
    {L"service install", L"NAME DESCRIPTION PATH [--type N]",
     L"register an auto-start service (own process, group Filter; with --type: that type, no group)", Install},
    {L"service remove", L"NAME", L"send a stop request and delete the service", Remove},
    {L"service control", L"NAME 1|2|3", L"start, stop, or stop and delete, without waiting", Control},
    {L"service add", L"--drive D --name NAME --image PATH [--display TEXT] [--description TEXT]",
     L"write an auto-start service key into the registry of the Windows on drive D", Add},
    {L"driver load", L"NAME PATH", L"register and start a kernel driver", LoadDriver},
    {L"driver remove", L"NAME", L"stop and delete a kernel driver", RemoveDriver},
};

}  // namespace
