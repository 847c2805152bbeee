// Stands in for the product's image-file library. QOCreateObject makes interface 5
// (flags must be 256); GetImgFileInfo answers from the image file's text
// "major minor status", after checking that the caller's record is sized and zeroed.
#include <windows.h>

#include <stdio.h>

namespace {

LONG g_live = 0;
struct ImageObject {
    void* const* table;
};

ULONG WINAPI Release(ImageObject* self) {
    delete self;
    return static_cast<ULONG>(InterlockedDecrement(&g_live));
}
DWORD WINAPI Unused(ImageObject*) { return 0x80004001; }
DWORD WINAPI GetImgFileInfo(ImageObject*, LPCWSTR path, BYTE* record) {
    DWORD size;
    memcpy(&size, record, 4);
    for (int i = 4; i < 3092; ++i)
        if (size != 3092 || record[i]) return 0xBAD0001;
    unsigned major = 0, minor = 0, status = 0;
    FILE* f = _wfopen(path, L"r");
    const int read = f ? fscanf(f, "%u %u %x", &major, &minor, &status) : 0;
    if (f) fclose(f);
    if (read != 3) return 0xBAD0003;
    const WORD versions[2] = {static_cast<WORD>(major), static_cast<WORD>(minor)};
    memcpy(record + 4, versions, sizeof versions);
    return status;
}
void* const kTable[13] = {(void*)Release, (void*)Unused, (void*)Unused, (void*)Unused, (void*)Unused, (void*)Unused, (void*)Unused, (void*)Unused, (void*)Unused, (void*)Unused, (void*)Unused, (void*)Unused, (void*)GetImgFileInfo};

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
