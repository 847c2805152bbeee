// A customer's C++ program: the installed header and import library, two exports.
#include <cstdio>

#include <Wrenkits.h>

int main() {
    const int tail = ZN_CompareStringW(L"C:\\WINDOWS\\System32", L"system32", 1);
    const BOOL x64 = ZN_IsX64Cpu();
    std::printf("C++ consumer: %d, %d\n", tail, x64);
    return tail == 1 && x64 ? 0 : 1;
}
