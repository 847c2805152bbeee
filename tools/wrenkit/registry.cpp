// Commands for offline hives.
#include "Wrenkits.h"
#include "commands.h"

namespace {

using namespace wrenkit;

int Load(const Args& a) { return Result(ZN_LoadRegistry(a.at(0), a.at(1))); }
int Unload(const Args& a) { return Result(ZN_UnLoadRegistry(a.at(0))); }

const CommandTable kTable{
    {L"hive load", L"FILE NAME", L"mount a hive file under HKLM\\NAME (repairing a damaged header)", Load},
    {L"hive unload", L"NAME", L"unmount HKLM\\NAME", Unload},
};

}  // namespace
