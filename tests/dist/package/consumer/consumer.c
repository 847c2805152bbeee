/* A customer's C program: the installed header and import library, two exports. */
#include <stdio.h>
#include <wchar.h>

#include <Wrenkits.h>

int main(void) {
    wchar_t size[32];
    char narrow[32];
    int compared;
    if (ZN_TranslateSize((LONGLONG)3 << 30, size, 32) < 0) return 1;
    WideCharToMultiByte(CP_ACP, 0, size, -1, narrow, sizeof narrow, NULL, NULL);
    compared = ZN_CompareStringA("C:\\Windows", "c:\\windows\\system32", 0);
    printf("C consumer: %s, %d\n", narrow, compared);
    return wcscmp(size, L"3.00 G") == 0 && compared == -1 ? 0 : 1;
}
