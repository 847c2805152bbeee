/*
 * Wrenkits.h - public interface of Wrenkits.dll.
 *
 * System-maintenance functions for backup, restore, cloning and deployment:
 * boot configuration, disks and volumes, folders, network, system facts,
 * privileges and tokens, offline registry hives, processes and services.
 *
 * Every export is a plain C function with the WINAPI calling convention and
 * an undecorated name (the export list lives in the module definition file,
 * so no dllexport/dllimport decoration is needed here). Unless a comment says
 * otherwise, a DWORD result is a Win32 error code and 0 means success.
 * Drive letters are passed by value; anything that is not an ASCII letter is
 * treated as "no letter". Functions that mount an offline hive use fixed mount
 * names under HKEY_LOCAL_MACHINE ("ZNRegKey", "ZNSoftware"), so callers must
 * not run two of them at the same time.
 *
 * The header compiles as C89 and later and as C++98 and later, warning-free with
 * -Wall -Wextra -pedantic. Each export has one or two lines: what it does, then its results.
 */
#ifndef WRENKITS_H
#define WRENKITS_H

#include <windows.h>
#include <stddef.h>

/* Optional decoration for every export; empty by default. */
#ifndef WRENKITS_API
#define WRENKITS_API
#endif

/* Compile-time layout checks for every C and C++ standard (a negative array size before C11 and C++11). */
#if defined(__cplusplus) && (__cplusplus >= 201103L || (defined(_MSVC_LANG) && _MSVC_LANG >= 201103L))
#define WRENKITS_STATIC_ASSERT(cond, msg) static_assert(cond, msg)
#elif defined(__STDC_VERSION__) && __STDC_VERSION__ >= 201112L
#define WRENKITS_STATIC_ASSERT(cond, msg) _Static_assert(cond, msg)
#else
#define WRENKITS_STATIC_ASSERT_JOIN2(a, b) a##b
#define WRENKITS_STATIC_ASSERT_JOIN(a, b) WRENKITS_STATIC_ASSERT_JOIN2(a, b)
#define WRENKITS_STATIC_ASSERT(cond, msg) \
    typedef char WRENKITS_STATIC_ASSERT_JOIN(wrenkits_static_assert_, __LINE__)[(cond) ? 1 : -1]
#endif

/* ------------------------------------------------------------------------ */
/* Records exchanged with callers                                           */
/* ------------------------------------------------------------------------ */

/* Number of entries in a drive-letter map: entry i stands for letter 'A' + i. */
#define ZN_LETTER_MAP_CHARS 26

/*
 * One network adapter with its IPv4 settings: 588 bytes, fields back to back
 * without padding, all text UTF-16 and terminated within its field.
 * When listing, IpAddress, SubnetMask and DefaultGateway are filled only for a
 * static interface. When applying, Description is ignored.
 */
typedef struct AdapterInfo {
    WCHAR ServiceName[64];     /* interface GUID in braces, as the network-cards key holds it */
    WCHAR Description[128];    /* adapter description */
    DWORD DhcpEnabled;         /* 1 = address from DHCP, 0 = static address */
    WCHAR IpAddress[20];       /* first static IPv4 address, dotted */
    WCHAR SubnetMask[20];      /* its mask */
    WCHAR DefaultGateway[20];  /* default gateway */
    WCHAR PrimaryDns[20];      /* first DNS server */
    WCHAR SecondaryDns[20];    /* second DNS server */
} AdapterInfo;

WRENKITS_STATIC_ASSERT(sizeof(AdapterInfo) == 588, "AdapterInfo must be 588 bytes");
WRENKITS_STATIC_ASSERT(offsetof(AdapterInfo, ServiceName) == 0, "AdapterInfo.ServiceName offset");
WRENKITS_STATIC_ASSERT(offsetof(AdapterInfo, Description) == 128, "AdapterInfo.Description offset");
WRENKITS_STATIC_ASSERT(offsetof(AdapterInfo, DhcpEnabled) == 384, "AdapterInfo.DhcpEnabled offset");
WRENKITS_STATIC_ASSERT(offsetof(AdapterInfo, IpAddress) == 388, "AdapterInfo.IpAddress offset");
WRENKITS_STATIC_ASSERT(offsetof(AdapterInfo, SubnetMask) == 428, "AdapterInfo.SubnetMask offset");
WRENKITS_STATIC_ASSERT(offsetof(AdapterInfo, DefaultGateway) == 468, "AdapterInfo.DefaultGateway offset");
WRENKITS_STATIC_ASSERT(offsetof(AdapterInfo, PrimaryDns) == 508, "AdapterInfo.PrimaryDns offset");
WRENKITS_STATIC_ASSERT(offsetof(AdapterInfo, SecondaryDns) == 548, "AdapterInfo.SecondaryDns offset");

/*
 * Directory records of the product: one full entry record and three older,
 * shorter layouts of the same entry. All are packed. The library gives the
 * numbered fields no meaning beyond these: the second 32-bit field holds the
 * file attributes (tested with the directory bit 16), the 14-character text
 * is the short name and the last field is the entry's name.
 */
#pragma pack(push, 1)

/* Full entry record (second argument of all three converters): 630 bytes. */
typedef struct DirEntryRecord {
    DWORD     E1;
    DWORD     E2;          /* file attributes */
    ULONGLONG E3;
    ULONGLONG E4;
    ULONGLONG E5;
    DWORD     E6;
    DWORD     E7;
    DWORD     E8;
    DWORD     E9;
    DWORD     E10;
    DWORD     E11;
    DWORD     E12;
    DWORD     E13;
    WORD      E14;
    WORD      E15;
    WORD      E16;
    WORD      E17;
    WCHAR     E18[14];     /* short name */
    ULONGLONG E19;
    WORD      E20;
    WCHAR     E21[260];    /* name */
} DirEntryRecord;

/* Older layout used by ZN_CopyDirData (no short name): 586 bytes. */
typedef struct DirDataRecord {
    DWORD     C1;
    DWORD     C2;          /* file attributes */
    ULONGLONG C3;
    ULONGLONG C4;
    ULONGLONG C5;
    DWORD     C6;
    DWORD     C7;
    DWORD     C8;
    DWORD     C9;
    DWORD     C10;
    DWORD     C11;
    WORD      C12;
    WORD      C13;
    WORD      C14;
    WORD      C15;
    WORD      C16;
    WCHAR     C17[260];    /* name */
} DirDataRecord;

/* Older layout used by ZN_CopyDirDataX (with short name): 614 bytes. */
typedef struct DirDataXRecord {
    DWORD     C1;
    DWORD     C2;          /* file attributes */
    ULONGLONG C3;
    ULONGLONG C4;
    ULONGLONG C5;
    DWORD     C6;
    DWORD     C7;
    DWORD     C8;
    DWORD     C9;
    DWORD     C10;
    DWORD     C11;
    WORD      C12;
    WORD      C13;
    WORD      C14;
    WORD      C15;
    WCHAR     C16[14];     /* short name */
    WORD      C17;
    WCHAR     C18[260];    /* name */
} DirDataXRecord;

/* Older layout used by ZN_CopyDirDataX2 (the entry record without E19): 622 bytes. */
typedef struct DirDataX2Record {
    DWORD     D1;
    DWORD     D2;          /* file attributes */
    ULONGLONG D3;
    ULONGLONG D4;
    ULONGLONG D5;
    DWORD     D6;
    DWORD     D7;
    DWORD     D8;
    DWORD     D9;
    DWORD     D10;
    DWORD     D11;
    DWORD     D12;
    DWORD     D13;
    WORD      D14;
    WORD      D15;
    WORD      D16;
    WORD      D17;
    WCHAR     D18[14];     /* short name */
    WORD      D19;
    WCHAR     D20[260];    /* name */
} DirDataX2Record;

#pragma pack(pop)

WRENKITS_STATIC_ASSERT(sizeof(DirEntryRecord) == 630, "DirEntryRecord must be 630 bytes");
WRENKITS_STATIC_ASSERT(offsetof(DirEntryRecord, E1) == 0, "DirEntryRecord.E1 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirEntryRecord, E2) == 4, "DirEntryRecord.E2 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirEntryRecord, E3) == 8, "DirEntryRecord.E3 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirEntryRecord, E4) == 16, "DirEntryRecord.E4 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirEntryRecord, E5) == 24, "DirEntryRecord.E5 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirEntryRecord, E6) == 32, "DirEntryRecord.E6 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirEntryRecord, E7) == 36, "DirEntryRecord.E7 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirEntryRecord, E8) == 40, "DirEntryRecord.E8 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirEntryRecord, E9) == 44, "DirEntryRecord.E9 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirEntryRecord, E10) == 48, "DirEntryRecord.E10 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirEntryRecord, E11) == 52, "DirEntryRecord.E11 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirEntryRecord, E12) == 56, "DirEntryRecord.E12 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirEntryRecord, E13) == 60, "DirEntryRecord.E13 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirEntryRecord, E14) == 64, "DirEntryRecord.E14 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirEntryRecord, E15) == 66, "DirEntryRecord.E15 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirEntryRecord, E16) == 68, "DirEntryRecord.E16 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirEntryRecord, E17) == 70, "DirEntryRecord.E17 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirEntryRecord, E18) == 72, "DirEntryRecord.E18 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirEntryRecord, E19) == 100, "DirEntryRecord.E19 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirEntryRecord, E20) == 108, "DirEntryRecord.E20 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirEntryRecord, E21) == 110, "DirEntryRecord.E21 offset");

WRENKITS_STATIC_ASSERT(sizeof(DirDataRecord) == 586, "DirDataRecord must be 586 bytes");
WRENKITS_STATIC_ASSERT(offsetof(DirDataRecord, C1) == 0, "DirDataRecord.C1 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataRecord, C2) == 4, "DirDataRecord.C2 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataRecord, C3) == 8, "DirDataRecord.C3 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataRecord, C4) == 16, "DirDataRecord.C4 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataRecord, C5) == 24, "DirDataRecord.C5 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataRecord, C6) == 32, "DirDataRecord.C6 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataRecord, C7) == 36, "DirDataRecord.C7 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataRecord, C8) == 40, "DirDataRecord.C8 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataRecord, C9) == 44, "DirDataRecord.C9 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataRecord, C10) == 48, "DirDataRecord.C10 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataRecord, C11) == 52, "DirDataRecord.C11 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataRecord, C12) == 56, "DirDataRecord.C12 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataRecord, C13) == 58, "DirDataRecord.C13 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataRecord, C14) == 60, "DirDataRecord.C14 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataRecord, C15) == 62, "DirDataRecord.C15 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataRecord, C16) == 64, "DirDataRecord.C16 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataRecord, C17) == 66, "DirDataRecord.C17 offset");

WRENKITS_STATIC_ASSERT(sizeof(DirDataXRecord) == 614, "DirDataXRecord must be 614 bytes");
WRENKITS_STATIC_ASSERT(offsetof(DirDataXRecord, C1) == 0, "DirDataXRecord.C1 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataXRecord, C2) == 4, "DirDataXRecord.C2 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataXRecord, C3) == 8, "DirDataXRecord.C3 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataXRecord, C4) == 16, "DirDataXRecord.C4 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataXRecord, C5) == 24, "DirDataXRecord.C5 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataXRecord, C6) == 32, "DirDataXRecord.C6 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataXRecord, C7) == 36, "DirDataXRecord.C7 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataXRecord, C8) == 40, "DirDataXRecord.C8 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataXRecord, C9) == 44, "DirDataXRecord.C9 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataXRecord, C10) == 48, "DirDataXRecord.C10 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataXRecord, C11) == 52, "DirDataXRecord.C11 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataXRecord, C12) == 56, "DirDataXRecord.C12 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataXRecord, C13) == 58, "DirDataXRecord.C13 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataXRecord, C14) == 60, "DirDataXRecord.C14 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataXRecord, C15) == 62, "DirDataXRecord.C15 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataXRecord, C16) == 64, "DirDataXRecord.C16 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataXRecord, C17) == 92, "DirDataXRecord.C17 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataXRecord, C18) == 94, "DirDataXRecord.C18 offset");

WRENKITS_STATIC_ASSERT(sizeof(DirDataX2Record) == 622, "DirDataX2Record must be 622 bytes");
WRENKITS_STATIC_ASSERT(offsetof(DirDataX2Record, D1) == 0, "DirDataX2Record.D1 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataX2Record, D2) == 4, "DirDataX2Record.D2 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataX2Record, D3) == 8, "DirDataX2Record.D3 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataX2Record, D4) == 16, "DirDataX2Record.D4 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataX2Record, D5) == 24, "DirDataX2Record.D5 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataX2Record, D6) == 32, "DirDataX2Record.D6 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataX2Record, D7) == 36, "DirDataX2Record.D7 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataX2Record, D8) == 40, "DirDataX2Record.D8 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataX2Record, D9) == 44, "DirDataX2Record.D9 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataX2Record, D10) == 48, "DirDataX2Record.D10 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataX2Record, D11) == 52, "DirDataX2Record.D11 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataX2Record, D12) == 56, "DirDataX2Record.D12 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataX2Record, D13) == 60, "DirDataX2Record.D13 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataX2Record, D14) == 64, "DirDataX2Record.D14 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataX2Record, D15) == 66, "DirDataX2Record.D15 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataX2Record, D16) == 68, "DirDataX2Record.D16 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataX2Record, D17) == 70, "DirDataX2Record.D17 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataX2Record, D18) == 72, "DirDataX2Record.D18 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataX2Record, D19) == 100, "DirDataX2Record.D19 offset");
WRENKITS_STATIC_ASSERT(offsetof(DirDataX2Record, D20) == 102, "DirDataX2Record.D20 offset");

/*
 * Image-file information record filled by the image-file interface of the
 * product's Qorlib library (interface identifier ZN_IMAGE_FILE_INTERFACE).
 * The caller sets Size to 3092 and zeroes the rest; only the two version
 * words are read back.
 */
#define ZN_IMAGE_FILE_INTERFACE 5
#define ZN_IMAGE_FILE_INFO_SIZE 3092

typedef struct ImageFileInfo {
    DWORD Size;                /* 3092, set by the caller */
    WORD  MajorVersion;        /* image format major version */
    WORD  MinorVersion;        /* image format minor version */
    BYTE  Reserved[ZN_IMAGE_FILE_INFO_SIZE - 8];
} ImageFileInfo;

WRENKITS_STATIC_ASSERT(sizeof(ImageFileInfo) == ZN_IMAGE_FILE_INFO_SIZE, "ImageFileInfo must be 3092 bytes");
WRENKITS_STATIC_ASSERT(offsetof(ImageFileInfo, Size) == 0, "ImageFileInfo.Size offset");
WRENKITS_STATIC_ASSERT(offsetof(ImageFileInfo, MajorVersion) == 4, "ImageFileInfo.MajorVersion offset");
WRENKITS_STATIC_ASSERT(offsetof(ImageFileInfo, MinorVersion) == 6, "ImageFileInfo.MinorVersion offset");

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------ */
/* Frame: child processes, text and size helpers                            */
/* ------------------------------------------------------------------------ */

/* Runs "program arguments" without a window (waiting when wait is non-zero); returns the exit code, 0 when not waited
   for, 87 for an empty command line, or the creation error. */
WRENKITS_API DWORD WINAPI ZN_RunProcess(LPCWSTR program, LPCWSTR arguments, INT wait);
/* Narrow twin of ZN_RunProcess; same results. */
WRENKITS_API DWORD WINAPI ZN_RunProcessA(LPCSTR program, LPCSTR arguments, INT wait);
/* Writes a byte count as a short size ("1.50 K", "3.00 G") into text; returns the characters written, negative on
   failure, 0 for a size of 0 ("0"). */
WRENKITS_API int WINAPI ZN_TranslateSize(LONGLONG bytes, LPWSTR text, DWORD textChars);
/* Case-insensitive compare: 0 equal, -1 first is the head (or, with matchTail, the tail) of second, 1 the reverse, 15
   otherwise. */
WRENKITS_API int WINAPI ZN_CompareStringA(LPCSTR first, LPCSTR second, INT matchTail);
/* Wide twin of ZN_CompareStringA; same results. */
WRENKITS_API int WINAPI ZN_CompareStringW(LPCWSTR first, LPCWSTR second, INT matchTail);

/* ------------------------------------------------------------------------ */
/* Boot: boot-manager entries, boot files, BCD store repair                 */
/* ------------------------------------------------------------------------ */

/* Points {bootmgr} of the system store at \Device\HarddiskVolumeN (copying the entry first when copyEntry is non-zero)
   and puts it first in the firmware order; returns the editor's result for the device command. */
WRENKITS_API DWORD WINAPI ZN_SetEfiEntry(DWORD volumeNumber, INT copyEntry);
/* Copies the boot-manager entry, places the copy on \Device\HarddiskVolumeN and hands its identifier back in newEntryId
   (260 characters, may be NULL; empty when none was printed); returns 0 or 87. */
WRENKITS_API DWORD WINAPI ZN_AddEfiEntry(DWORD volumeNumber, ULONG_PTR reserved, LPWSTR newEntryId);
/* Deletes a boot entry given by its braced identifier; returns the editor's exit code. */
WRENKITS_API DWORD WINAPI ZN_RemoveBcdEntry(LPCWSTR entryId);
/* Generates boot files for the Windows on windowsLetter onto targetLetter (UEFI when uefi is non-zero, else BIOS);
   returns the generator's exit code, or 2 when the host path is unknown. */
WRENKITS_API DWORD WINAPI ZN_GenerateBootFiles(WCHAR windowsLetter, WCHAR targetLetter, INT uefi);
/* Repoints a restored system's offline BCD store at its boot and system partitions; returns 0, 87 for a bad system
   letter, or the exit code of the deciding command. */
WRENKITS_API DWORD WINAPI ZN_RepairBcdEntry(WCHAR bootLetter, WCHAR systemLetter, DWORD uefi);

/* ------------------------------------------------------------------------ */
/* Disk: partitions, volumes, drive letters, disk identities, BitLocker     */
/* ------------------------------------------------------------------------ */

/* Sets (removeLetter 0; a non-letter: first free, written back) or removes a partition's letter via diskpart; returns 0
   once sent, 2 no partition, 1168 no volume, 87 null pointer or removing a non-letter, 8, 29, pipe/start error. */
WRENKITS_API DWORD WINAPI ZN_MountPartition(DWORD diskNumber, DWORD partitionNumber, WCHAR *driveLetter, DWORD removeLetter);
/* Finds N of the \\.\HarddiskVolumeN that lies on the given partition of the given disk; returns 0 with *volumeNumber
   set, 1168 when none matches, or 87 for a null volumeNumber. */
WRENKITS_API DWORD WINAPI ZN_GetVolumeNum(DWORD diskNumber, DWORD partitionNumber, LPDWORD volumeNumber);
/* Reports the physical disk that holds the first extent of a lettered volume; returns 0 (also after a logged extent
   failure, output untouched), 87 for a bad letter or a null diskNumber, 2 no extents, 8, or the open error. */
WRENKITS_API DWORD WINAPI ZN_GetVolumeDisk(WCHAR driveLetter, LPDWORD diskNumber);
/* Computes the smallest size a volume could shrink to (bytes in use, or from the NTFS cluster bitmap when exact is
   non-zero); returns 0, 87 for a bad letter or a null minSizeBytes, 50 for exact on non-NTFS, 8, or an error. */
WRENKITS_API DWORD WINAPI ZN_GetVolumeMinSize(WCHAR driveLetter, INT exact, PULONGLONG minSizeBytes);
/* Writes the file system of the volume holding path (a UNC path's share, else its drive) into fsName (260 characters);
   TRUE, or FALSE for a null or empty path, a null fsName (error 87), a share over 259 (206), a failed query. */
WRENKITS_API BOOL WINAPI ZN_GetFSType(LPCWSTR path, LPWSTR fsName);
/* Returns TRUE when the drive is removable or a fixed disk attached through USB. */
WRENKITS_API BOOL WINAPI ZN_IsUsbPartition(WCHAR driveLetter);
/* Classifies a path: -1 invalid, 0 local, 1 UNC, 2 optical drive, 3 USB or removable drive. */
WRENKITS_API int WINAPI ZN_GetPathType(LPCWSTR path);
/* Returns TRUE for a connected network drive, copying its \\server\share into remoteName (260 characters, may be NULL);
   else FALSE, also for a non-letter (last error 87) or a name over 259 characters (206, buffer untouched). */
WRENKITS_API BOOL WINAPI ZN_IsRemoteDrive(WCHAR driveLetter, LPWSTR remoteName);
/* Replaces an offline system's MountedDevices letters by the running system's, re-lettered through a 26-entry map;
   returns 0, the hive load or key open error, 87 for a system drive that is no letter or a null map. */
WRENKITS_API DWORD WINAPI ZN_RepairDosDevice(WCHAR systemDrive, const WCHAR *letterMap);
/* Narrow twin of ZN_RepairDosDevice (26-entry narrow map); it opens HKLM\Z\MountedDevices, not the hive's key, so it
   normally returns 2 (the open error); else as ZN_RepairDosDevice, 87 for a drive that is no letter or a null map. */
WRENKITS_API DWORD WINAPI ZN_RepairDosDeviceA(CHAR systemDrive, const CHAR *letterMap);
/* Deletes the letters set in letterMask (bit 0 = A) from an offline system's MountedDevices; returns 0, the hive load
   or key open error, 87 for a system drive that is no letter. */
WRENKITS_API DWORD WINAPI ZN_ClearDosDevice(WCHAR systemDrive, DWORD letterMask);
/* Fills a 26-entry map with the offline system's letter for each running-system letter's volume (0 where none); returns
   0, the hive load or key open error, 87 for a drive that is no letter or a null map (map then untouched). */
WRENKITS_API DWORD WINAPI ZN_GetDoscharMapA(CHAR systemDrive, CHAR *letterMap);
/* Copies the disk identity and partition GUIDs of one physical disk onto another; returns 0, 13 for different partition
   styles (nothing written), 2 for an unpaired partition (the pairs before it written), or the open/layout error. */
WRENKITS_API DWORD WINAPI ZN_CopyDiskGuid(DWORD sourceDisk, DWORD destinationDisk);
/* Returns TRUE when the volume is the running system's or holds a Windows installation with a readable version; FALSE
   otherwise and for a non-letter (refused, logged). */
WRENKITS_API BOOL WINAPI ZN_IsSystemPartition(WCHAR driveLetter);
/* Returns TRUE when the volume is an active MBR partition or a GPT EFI system partition; FALSE otherwise, on a failed
   request, and for a non-letter (refused, logged). */
WRENKITS_API BOOL WINAPI ZN_IsBootPartition(WCHAR driveLetter);
/* Returns the first free drive letter from C to Z in upper case, or 0 when all are taken. */
WRENKITS_API WCHAR WINAPI ZN_GetFreeDriveLetter(void);
/* Sets a bit (bit 0 = A) in *letterMask for every BitLocker-protected or locked volume; returns the COM result
   (negative on failure, 1 after a full walk), E_INVALIDARG (87 as a COM result) for a null letterMask. */
WRENKITS_API HRESULT WINAPI ZN_GetBitLockerVolumes(LPDWORD letterMask);

/* ------------------------------------------------------------------------ */
/* Files: folder trees, path write check, directory record conversion       */
/* ------------------------------------------------------------------------ */

/* Creates a folder with all missing parents (local or UNC); returns 0 also for NULL/empty or anything existing, 87 over
   260 characters, else the creation error. */
WRENKITS_API DWORD WINAPI ZN_CreatePath(LPCWSTR path);
/* Creates the folder that is to hold filePath; returns 0 for NULL/empty, 87 over 260 characters or without a backslash,
   else ZN_CreatePath's result. */
WRENKITS_API DWORD WINAPI ZN_CreateFilePath(LPCWSTR filePath);
/* Narrow twin of ZN_CreateFilePath; same results, and 206 when the text does not convert into 260 wide characters. */
WRENKITS_API DWORD WINAPI ZN_CreateFilePathA(LPCSTR filePath);
/* Deletes a folder tree whatever its attributes, without entering junctions; returns 0 (best effort), 87 for
   NULL/empty, 206 when the search pattern exceeds 259 characters. */
WRENKITS_API DWORD WINAPI ZN_RemoveDirectory(LPCWSTR path);
/* Copies a folder tree, overwriting existing files; returns 0 (best effort), 87 for a NULL/empty folder, 206 when the
   search pattern exceeds 259 characters. */
WRENKITS_API DWORD WINAPI ZN_CopyFolder(LPCWSTR source, LPCWSTR target);
/* Copies a folder tree, keeping existing files when failIfExists is non-zero; results as ZN_CopyFolder. */
WRENKITS_API DWORD WINAPI ZN_CopyFolderEx(LPCWSTR source, LPCWSTR target, BOOL failIfExists);
/* TRUE when the folder (given with a trailing backslash) holds nothing but reparse points, or cannot be searched (also
   NULL/empty or too long, logged). */
WRENKITS_API BOOL WINAPI ZN_IsEmptyFolder(LPCWSTR folderWithSlash);
/* Registers (or unregisters) every .ocx in a folder, and in its subfolders when recurse is non-zero, with regsvr32;
   returns 0, 87 for NULL/empty, 206 when the folder exceeds 259 characters. */
WRENKITS_API DWORD WINAPI ZN_RegActiveX(LPCWSTR folder, DWORD recurse, DWORD unregister);
/* Classifies a backup target, setting the four flags; returns 1 usable, 0 network non-folder, 2 not writable, 3 invalid
   or unreachable, 4 no network, 5 refused, 67 other connection error, 87 NULL flag, 206 share or user over 259. */
WRENKITS_API DWORD WINAPI ZN_CheckPath(LPCWSTR path, LPCWSTR user, LPCWSTR password, LPDWORD isNetwork, LPDWORD isOptical, LPDWORD isFolder, LPDWORD isNtfs);
/* Converts between the short directory layout and the entry record (toEntry non-zero: older record to entry record);
   returns 0, 87 for a NULL pointer, 206 for a name without its terminator (nothing written). */
WRENKITS_API DWORD WINAPI ZN_CopyDirData(DirDataRecord *record, DirEntryRecord *entry, BOOL toEntry);
/* Same conversion for the layout with a short name; returns 0, 87 for a NULL pointer, 206 for an unterminated name or
   short name. */
WRENKITS_API DWORD WINAPI ZN_CopyDirDataX(DirDataXRecord *record, DirEntryRecord *entry, BOOL toEntry);
/* Field-for-field conversion for the layout without E19; returns 0, 87 for a NULL pointer, 206 for an unterminated
   name. */
WRENKITS_API DWORD WINAPI ZN_CopyDirDataX2(DirDataX2Record *record, DirEntryRecord *entry, BOOL toEntry);

/* ------------------------------------------------------------------------ */
/* Net: shares, mapped drives, addresses, domain, adapter configuration     */
/* ------------------------------------------------------------------------ */

/* Connects a UNC path's share (user without domain: the server's, as given, then Guest), checks it is reachable
   (writable if checkWrite); returns 0 (also local), 87 NULL or no share, 206 over 259, the last probe's 5, 53, 112. */
WRENKITS_API DWORD WINAPI ZN_ConnectNetworkPath(LPCWSTR path, LPCWSTR user, LPCWSTR password, DWORD checkWrite);
/* Narrow twin of ZN_ConnectNetworkPath; same results, and 206 for a text longer than 259 characters. */
WRENKITS_API DWORD WINAPI ZN_ConnectNetworkPathA(LPCSTR path, LPCSTR user, LPCSTR password, DWORD checkWrite);
/* Cancels the connection to the share of a UNC path; returns 0 (also for a local path or no share part), or 206 for a
   share longer than 259 characters. */
WRENKITS_API DWORD WINAPI ZN_DisconnectNetworkPath(LPCWSTR path);
/* Narrow twin of ZN_DisconnectNetworkPath; same results, and 206 for a path longer than 259 characters. */
WRENKITS_API DWORD WINAPI ZN_DisconnectNetworkPathA(LPCSTR path);
/* Writes the first usable Ethernet or wireless IPv4 address into address (at least 16 characters); returns TRUE when
   one was found, FALSE otherwise (address untouched) and for a NULL address. */
WRENKITS_API BOOL WINAPI ZN_GetFirstIpAddress(LPWSTR address);
/* Writes the domain or workgroup name (260 characters) and sets the two flags (neither for a workgroup named like the
   computer); returns 0, 87 for a NULL output, 206 for a name over 259 characters, or the failing call's error. */
WRENKITS_API DWORD WINAPI ZN_GetDomainName(LPWSTR name, LPDWORD inDomain, LPDWORD inWorkgroup);
/* Maps a share to a drive letter (user without domain: the server's, then as given); returns 0, 87 for a NULL or empty
   share or a non-letter, 206 for a server or server\user over 259 characters, or the error of the last attempt. */
WRENKITS_API DWORD WINAPI ZN_MapNetDrive(LPCWSTR share, WCHAR driveLetter, LPCWSTR user, LPCWSTR password);
/* Disconnects a mapped drive letter; returns 0, 87 for a non-letter, or the cancellation error. */
WRENKITS_API DWORD WINAPI ZN_DisconnectNetDrive(WCHAR driveLetter);
/* Lists the network adapters into adapters (*count records, adapters may be NULL) and stores the number found in
   *count; returns 0, 87 for a NULL count, 122 when the array is too small, or the open error. */
WRENKITS_API DWORD WINAPI ZN_EnumNetworkAdapters(AdapterInfo *adapters, LPDWORD count);
/* Sets an adapter to DHCP or the record's static addresses via netsh; returns 0, 87 (NULL record, empty or unterminated
   field, unknown adapter, empty static field), 206 (netsh command over 259; none run), a read error, netsh's code. */
WRENKITS_API DWORD WINAPI ZN_SetNetworkAdapter(const AdapterInfo *adapter);

/* ------------------------------------------------------------------------ */
/* Sysinfo: Windows version and edition, installed systems, product setup   */
/* ------------------------------------------------------------------------ */

/* Returns TRUE when the running Windows is Vista or later. */
WRENKITS_API BOOL WINAPI ZN_IsUpVista(void);
/* Writes the running system's display name (edition, bitness, service pack, build), cut silently at nameChars; returns
   0, 50 when the version is unreadable, 126 without GetProductInfo, 87 for a NULL name with a usable capacity. */
WRENKITS_API DWORD WINAPI ZN_GetOSVersion(LPWSTR name, DWORD nameChars);
/* Reads version, bitness, product name and Windows path of the installation on a drive, mounting its SOFTWARE hive when
   offline (every output optional); returns 0, 87, or the failing step's error. */
WRENKITS_API DWORD WINAPI ZN_GetOsVersionEx(WCHAR driveLetter, LPDWORD major, LPDWORD minor, LPDWORD is64Bit, LPWSTR productName, DWORD productNameChars, LPWSTR pathName, DWORD pathNameChars);
/* Reads the version and 64-bit flag of the installation on a drive (outputs zeroed first); returns TRUE on success,
   FALSE for a non-letter, a drive without WINDOWS\system32\drivers, a failed read, or a NULL output (refused). */
WRENKITS_API BOOL WINAPI ZN_GetSystemInfoFromPartition(CHAR driveLetter, LPDWORD major, LPDWORD minor, LPDWORD is64Bit);
/* Reports the running system's version as GetVersionExW gives it to this process; returns TRUE on success, FALSE on
   failure or a NULL output (refused). */
WRENKITS_API BOOL WINAPI ZN_GetSystemVersion(LPDWORD major, LPDWORD minor);
/* Reports the running system's true version through RtlGetVersion; returns TRUE on success, FALSE on failure or a NULL
   output (refused). */
WRENKITS_API BOOL WINAPI ZN_GetSystemVersionEx(LPDWORD major, LPDWORD minor);
/* Reads version bytes, 64-bit flag, product name and path (200-byte buffers, every output optional; the path names the
   given letter) of the installation on a drive; returns TRUE, or FALSE on failure, a non-letter or a name or path
   that fills its 200 bytes without a terminator (emptied; all refused). */
WRENKITS_API BOOL WINAPI ZN_GetSystemInfo(WCHAR driveLetter, PBYTE major, PBYTE minor, LPDWORD is64Bit, LPWSTR productName, LPWSTR pathName);
/* Writes the directory-service database folder (520-byte buffer, no trailing backslash); returns 0, 87 when empty or
   for a NULL buffer, 206 for a value that fills the buffer unterminated, or the registry error. */
WRENKITS_API DWORD WINAPI ZN_GetNtdsFolder(LPWSTR folder);
/* Returns TRUE when the setup key of that .NET Framework version exists. */
WRENKITS_API BOOL WINAPI ZN_TestDotNetFramework(BYTE major, BYTE minor);
/* Stores the shadow-copy system provider's GUID (all zero when none); returns the same pointer (NULL is refused and
   returned). */
WRENKITS_API GUID * WINAPI ZN_GetVssSystemProvider(GUID *providerId);
/* Writes the DriversPack folder next to the library, client or console (260 narrow characters, double-terminated);
   returns 0, 2 when none exists, 87 for a NULL buffer, 206 when a candidate path would not fit. */
WRENKITS_API DWORD WINAPI ZN_GetUniversalDriversPack(LPSTR folder);
/* Returns the product's configured user-interface language identifier, 1033 by default (also when the settings path
   would not fit). */
WRENKITS_API DWORD WINAPI ZN_GetLanguageID(void);
/* Returns TRUE when running under Windows PE. */
WRENKITS_API BOOL WINAPI ZN_IsUnderPE(void);
/* Loads the Qorlib build matching the version and creates an object of the interface; returns 0, the factory's status
   (object set to NULL), the load error, 87 for a NULL object address, 206 when the library path would not fit. */
WRENKITS_API DWORD WINAPI ZN_CreateInterface(WORD major, WORD minor, DWORD interfaceId, void **object);
/* Returns the image file's major format version and stores its minor one (minorVersion may be NULL); returns 9 and
   minor 3 on any failure, a NULL path included (refused). */
WRENKITS_API WORD WINAPI ZN_GetImageVersion(LPCWSTR imagePath, PWORD minorVersion);
/* Writes the product name (260 characters), "Lumenkeep" by default; returns 0, 87 for a NULL buffer, 206 for a value
   that fills it unterminated. */
WRENKITS_API DWORD WINAPI ZN_GetProductName(LPWSTR name);
/* Returns the product type number, 0 when unknown. */
WRENKITS_API DWORD WINAPI ZN_GetProductType(void);

/* ------------------------------------------------------------------------ */
/* Security: privileges, tokens, logon, user-session launch, shutdown       */
/* ------------------------------------------------------------------------ */

/* Enables the backup and restore privileges in the thread or process token; returns TRUE when both were adjusted. */
WRENKITS_API BOOL WINAPI ZN_EnableBackupRestorePrivilege(void);
/* Disables the backup and restore privileges; returns TRUE when both were adjusted. */
WRENKITS_API BOOL WINAPI ZN_DisableBackupRestorePrivilege(void);
/* Enables or disables a named privilege (narrow name); returns TRUE when the token was adjusted. */
WRENKITS_API BOOL WINAPI ZN_SetPrivilegeA(LPCSTR privilegeName, BOOL enable);
/* Enables or disables a named privilege (wide name); returns TRUE when the token was adjusted. */
WRENKITS_API BOOL WINAPI ZN_SetPrivilegeW(LPCWSTR privilegeName, BOOL enable);
/* Logs a user on (batch logon first on Vista and later, then interactive); returns the token, which the caller closes,
   or NULL (last error 87 for a NULL or empty user name). */
WRENKITS_API HANDLE WINAPI ZN_LogonAsUser(LPCWSTR user, LPCWSTR password, LPCWSTR domain);
/* Returns a primary token duplicated from winlogon.exe (SYSTEM), or from the last process whose token opened when none
   runs; the caller closes it. NULL when no token opened. */
WRENKITS_API HANDLE WINAPI ZN_GetSystemToken(void);
/* Stores the desktop user's explorer.exe token itself (not a duplicate) in *token, which the caller closes; returns 0,
   1 for a NULL pointer, or 1168 (no explorer.exe, or its token did not open). */
WRENKITS_API DWORD WINAPI ZN_GetExplorerToken(PHANDLE token);
/* Returns a primary token duplicated from the first process of a non-SYSTEM administrator (else from the last process
   whose token opened), which the caller closes, or NULL. */
WRENKITS_API HANDLE WINAPI ZN_GetAdminToken(void);
/* Starts a program on the user's desktop with the user's (or an admin's) token, in its own folder; returns its exit
   code if waited for, else 0, or the start error; 87 NULL, empty or backslash-less command line, 206 over 259. */
WRENKITS_API DWORD WINAPI ZN_PopWindow(LPCWSTR commandLine, BOOL useAdminToken, BOOL wait);
/* Shuts the machine down (ExitWindowsEx flags, forced; under Windows PE through shutdown.exe, always a shutdown);
   returns 0 or the Win32 error of the failing step. */
WRENKITS_API DWORD WINAPI ZN_ShutDown(WORD exitFlags);

/* ------------------------------------------------------------------------ */
/* Registry: offline hives, startup programs, post-restore repair           */
/* ------------------------------------------------------------------------ */

/* Mounts a hive file under HKEY_LOCAL_MACHINE\keyName, repairing a corrupt one from its .BAK copy or by rewriting its
   header; returns 0 or the error, 87 for a NULL or empty argument, 206 for a hive path over 259 characters. */
WRENKITS_API DWORD WINAPI ZN_LoadRegistry(LPCWSTR hiveFile, LPCWSTR keyName);
/* Unmounts HKEY_LOCAL_MACHINE\keyName, retrying once with the needed privileges; returns 0 or the error. */
WRENKITS_API DWORD WINAPI ZN_UnLoadRegistry(LPCWSTR keyName);
/* Adds a program (quoted path, then arguments, which may be NULL) to the Run list of the installation on a drive;
   returns 0, 87 (unlogged) non-letter or empty name/path, 206 over 519 characters, else the load/open/write error. */
WRENKITS_API DWORD WINAPI ZN_AddStartupProcess(WCHAR driveLetter, LPCWSTR valueName, LPCWSTR programPath, LPCWSTR arguments);
/* Removes a value from the machine Run list of the installation on a drive; returns 0, 87 (unlogged) for a non-letter
   or empty name, else the load/open/delete error (2 when absent). */
WRENKITS_API DWORD WINAPI ZN_RemoveStartupProcess(WCHAR driveLetter, LPCWSTR valueName);
/* Runs the post-restore repair series on the offline installation on a drive; returns 0, 87 for a non-letter, or the
   error when the Windows folder is unknown. */
WRENKITS_API DWORD WINAPI ZN_RepairFileRegistry(WCHAR driveLetter, DWORD majorVersion, DWORD minorVersion);
/* Re-copies the directory-service database folder to the same folder on another drive while NTDS is stopped; the stop
   or start result (1460 after two timed-out stops), 87 for an empty source or non-letter, 206 when too long. */
WRENKITS_API DWORD WINAPI ZN_ReCopyNtdsFiles(LPCWSTR sourceFolder, WCHAR destinationLetter);

/* ------------------------------------------------------------------------ */
/* Process: lookup, stop, show, 32/64-bit questions                         */
/* ------------------------------------------------------------------------ */

/* Returns TRUE when a process whose executable name starts with name (any case; "" matches the first) runs, storing its
   identifier (processId may be NULL; set to 0 first). FALSE with last error 87 for a NULL name. */
WRENKITS_API BOOL WINAPI ZN_ProcessExist(LPCWSTR name, LPDWORD processId);
/* Terminates the first process matching name as ZN_ProcessExist does; returns 0 (also when none runs), 87 for a NULL or
   empty name, or the open or terminate error (5 for access denied). */
WRENKITS_API DWORD WINAPI ZN_StopProcess(LPCWSTR name);
/* Returns TRUE: the library runs only on 64-bit processors. */
WRENKITS_API BOOL WINAPI ZN_IsX64Cpu(void);
/* Returns TRUE when the current process runs under 32-bit emulation on 64-bit Windows. */
WRENKITS_API BOOL WINAPI ZN_IsWow64(void);
/* Switches file-system redirection off (enable FALSE, saving the old value) or back on (enable TRUE, from the saved
   value); returns 0, 87 for a NULL pointer, or the error. */
WRENKITS_API DWORD WINAPI ZN_EnableWow64Redirection(BOOL enable, PVOID *savedValue);
/* Shows (SW_SHOW) the first top-level window of a process, visible or not; returns 0, or 1168 when it has none. */
WRENKITS_API DWORD WINAPI ZN_ShowProcessWind(DWORD processId);

/* ------------------------------------------------------------------------ */
/* Service: SCM control, bounded start and stop, offline registration       */
/* ------------------------------------------------------------------------ */

/* Returns TRUE when the service can be opened; FALSE otherwise, also for a null or empty name. */
WRENKITS_API BOOL WINAPI ZN_ServiceInstalled(LPCWSTR serviceName);
/* Returns TRUE when the service is running or start pending; FALSE otherwise (paused, stopped, a null or empty name).
   */
WRENKITS_API BOOL WINAPI ZN_ServiceIsRunning(LPCWSTR serviceName);
/* Installs an auto-start own-process service with a description; returns 0, 87 for a null or empty name or binary path,
   1073 when it exists, or the manager's error. */
WRENKITS_API DWORD WINAPI ZN_InstallService(LPCWSTR serviceName, LPCWSTR description, LPCWSTR binaryPath);
/* Installs an auto-start service of the given SERVICE_* type with a description; returns 0, 87 for a null or empty name
   or binary path, 1073 when it exists, or the manager's error. */
WRENKITS_API DWORD WINAPI ZN_InstallServiceEx(LPCWSTR serviceName, LPCWSTR description, LPCWSTR binaryPath, DWORD serviceType);
/* Sends a stop request and deletes the service; returns 0, 87 for a null or empty name, 1060 when unknown, or the
   error. */
WRENKITS_API DWORD WINAPI ZN_RemoveService(LPCWSTR serviceName);
/* Starts (1), stops (2) or stops and deletes (3) a service without waiting; returns 0, 87 for an empty name, 50 for
   another operation, or the error. */
WRENKITS_API DWORD WINAPI ZN_ControlService(LPCWSTR serviceName, WORD operation);
/* Registers and starts a demand-start kernel driver (an existing or running one is fine); returns 0, 87 for a null or
   empty name or path, 1072 when it stays marked for deletion, or the error. */
WRENKITS_API DWORD WINAPI ZN_LoadNtDriver(LPCSTR driverName, LPCSTR driverPath);
/* Stops and deletes a kernel driver service; returns 0 (also when the deletion fails), 87 for a null or empty name, or
   the manager/service open error. */
WRENKITS_API DWORD WINAPI ZN_RemoverNtDriver(LPCSTR driverName);
/* Starts a service and waits, bounded by its progress reports, until it runs; returns 0 (also when it did not reach
   running in time), 1460 when a stop in progress stalls, 87 for a null or empty name, or the error. */
WRENKITS_API DWORD WINAPI ZN_StartService(LPCWSTR serviceName);
/* Stops a service after its active dependants and waits up to 30 seconds; returns 0, 1460 on timeout, 1051 when a
   dependant refused the first request, 87 for a null or empty name, or the error. */
WRENKITS_API DWORD WINAPI ZN_StopService(LPCWSTR serviceName);
/* Writes an auto-start service key into the installation on a drive (display name and description default to the name);
   returns 0, 87 (unlogged: no letter, empty name or image), 206 key or hive path over 259, mount/registry error. */
WRENKITS_API DWORD WINAPI ZN_AddService(WCHAR driveLetter, LPCWSTR serviceName, LPCWSTR imagePath, LPCWSTR displayName, LPCWSTR description);

#ifdef __cplusplus
}
#endif

#endif /* WRENKITS_H */
