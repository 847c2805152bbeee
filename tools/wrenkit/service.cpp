// Commands for services and kernel drivers.
#include <stdlib.h>

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

int Installed(const Args& a) { return a.at(0) ? Result(ZN_ServiceInstalled(a.at(0))) : Usage(L"service installed"); }
int Running(const Args& a) { return a.at(0) ? Result(ZN_ServiceIsRunning(a.at(0))) : Usage(L"service running"); }
int Start(const Args& a) { return a.at(0) ? Result(ZN_StartService(a.at(0))) : Usage(L"service start"); }
int Stop(const Args& a) { return a.at(0) ? Result(ZN_StopService(a.at(0))) : Usage(L"service stop"); }
int Remove(const Args& a) { return a.at(0) ? Result(ZN_RemoveService(a.at(0))) : Usage(L"service remove"); }

int Install(const Args& a) {
    if (!a.at(2)) return Usage(L"service install");
    const wchar_t* type = a.option(L"--type");
    if (!type) return Result(ZN_InstallService(a.at(0), a.at(1), a.at(2)));
    return Result(ZN_InstallServiceEx(a.at(0), a.at(1), a.at(2), wcstoul(type, nullptr, 0)));
}

int Control(const Args& a) {
    if (!a.at(1)) return Usage(L"service control");
    return Result(ZN_ControlService(a.at(0), static_cast<WORD>(wcstoul(a.at(1), nullptr, 10))));
}

int Add(const Args& a) {
    WCHAR letter = 0;
    const wchar_t* name = a.option(L"--name");
    const wchar_t* image = a.option(L"--image");
    if (!ParseLetter(a.option(L"--drive"), letter) || !name || !image) return Usage(L"service add");
    return Result(ZN_AddService(letter, name, image, a.option(L"--display"), a.option(L"--description")));
}

int LoadDriver(const Args& a) {
    if (!a.at(1)) return Usage(L"driver load");
    return Result(ZN_LoadNtDriver(Narrow(a.at(0)).c_str(), Narrow(a.at(1)).c_str()));
}

int RemoveDriver(const Args& a) {
    return a.at(0) ? Result(ZN_RemoverNtDriver(Narrow(a.at(0)).c_str())) : Usage(L"driver remove");
}

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
