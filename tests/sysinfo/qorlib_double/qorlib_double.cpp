// Stands in for the product's image-file library. QOCreateObject makes interface 5
// (flags must be 256); GetImgFileInfo answers from the image file's text
// "major minor status", after checking that the caller's record is sized and zeroed.
#include <windows.h>

#include <stdio.h>

namespace {

LONG g_live = 0;

struct ImageObject;
using Slot = void*;

ULONG WINAPI Release(ImageObject* self);
DWORD WINAPI GetImgFileInfo(ImageObject* self, LPCWSTR path, BYTE* record);
DWORD WINAPI Unused(ImageObject*) { return 0x80004001; }

struct ImageObject {
    const Slot* table;
};

const Slot kTable[13] = {reinterpret_cast<Slot>(Release), reinterpret_cast<Slot>(Unused),
                         reinterpret_cast<Slot>(Unused), reinterpret_cast<Slot>(Unused),
                         reinterpret_cast<Slot>(Unused), reinterpret_cast<Slot>(Unused),
                         reinterpret_cast<Slot>(Unused), reinterpret_cast<Slot>(Unused),
                         reinterpret_cast<Slot>(Unused), reinterpret_cast<Slot>(Unused),
                         reinterpret_cast<Slot>(Unused), reinterpret_cast<Slot>(Unused),
                         reinterpret_cast<Slot>(GetImgFileInfo)};

ULONG WINAPI Release(ImageObject* self) {
    delete self;
    return static_cast<ULONG>(InterlockedDecrement(&g_live));
}

DWORD WINAPI GetImgFileInfo(ImageObject*, LPCWSTR path, BYTE* record) {
    DWORD size;
    memcpy(&size, record, 4);
    if (size != 3092) return 0xBAD0001;
    for (int i = 4; i < 3092; ++i)
        if (record[i]) return 0xBAD0002;
    FILE* f = _wfopen(path, L"r");
    if (!f) return 0xBAD0003;
    unsigned major = 0, minor = 0, status = 0xBAD0004;
    const int read = fscanf(f, "%u %u %x", &major, &minor, &status);
    fclose(f);
    if (read != 3) return 0xBAD0004;
    const WORD versions[2] = {static_cast<WORD>(major), static_cast<WORD>(minor)};
    memcpy(record + 4, versions, sizeof versions);
    return status;
}

}  // namespace

extern "C" __declspec(dllexport) DWORD WINAPI QOCreateObject(DWORD flags, DWORD interfaceId, void** object) {
    if (flags != 256) return 0x80070057;
    if (interfaceId != 5) return 0x80004002;
    *object = new ImageObject{kTable};
    InterlockedIncrement(&g_live);
    return 0;
}

// Objects created and not yet released, for the tests.
extern "C" __declspec(dllexport) LONG WINAPI QOLiveObjects() { return g_live; }
