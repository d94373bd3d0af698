// The Windows names that the indexer uses, said in TavPort's. This is all that stands between the two: the program
// beside it was written against the names on the left.
//
// What a rename cannot hide is the kind of a handle. Windows has one HANDLE for everything; here files, threads,
// events and semaphores are types of their own, so declarations name the kind, and CloseHandle is chosen by it.
#pragma once

#include <TavPort.h>

#include <cwchar> // before the names below: it takes away macros of its functions' names

using BOOL = int32_t;
using DWORD = uint32_t;
using LONG = int32_t;
using LPVOID = void*;
using WCHAR = TavChar;
using LPCWSTR = const WCHAR*;
union LARGE_INTEGER {
    int64_t QuadPart;
};

#define WINAPI
#define TRUE 1
#define FALSE 0
#define INFINITE TAV_INFINITE
#define MAX_PATH 1024
#define WAIT_OBJECT_0 TAV_WAIT_OBJECT_0
#define WAIT_TIMEOUT TAV_WAIT_TIMEOUT

// Wide text.
#define wcslen tav_wcslen
#define wcscpy tav_wcscpy
#define wcscmp tav_wcscmp
#define _snwprintf tav_snwprintf
#define PathAppend TavPathAppend
#define PathIsDirectory TavPathIsDirectory

// Folders.
using WIN32_FIND_DATAW = TavFindDataW;
using HFIND = TavFindSearch*;
#define INVALID_FIND TAV_INVALID_FIND
#define FILE_ATTRIBUTE_DIRECTORY TAV_FILE_ATTRIBUTE_DIRECTORY
#define FindFirstFileW TavFindFirstFile
#define FindNextFileW TavFindNextFile
#define FindClose TavFindClose

// Files. They are named by references here, which live as long as the call.
using HFILE = int32_t;
#define INVALID_HANDLE_VALUE (-1)
#define GENERIC_READ TAV_FILE_READ
#define GENERIC_WRITE TAV_FILE_WRITE
#define OPEN_EXISTING 3u
#define CREATE_ALWAYS 2u

inline HFILE CreateFileW(LPCWSTR name, DWORD access, DWORD, void*, DWORD disposition, DWORD, void*) {
    OpacTavFSRef* file = Tav0FSRCreateWithPath(name);
    const HFILE handle = disposition == OPEN_EXISTING ? TavFileOpenExt(file, access)
                                                      : TavFileCreateExt(file, access | TAV_FILE_TRUNCATE);
    if (file) Tav0FSRRelease(file);
    return handle;
}

// At the end of a file Windows reads 0 bytes and calls that success.
inline BOOL ReadFile(HFILE file, LPVOID buffer, DWORD wanted, DWORD* got, void*) {
    int64_t before = 0;
    int64_t size = 0;
    if (TavFileReadExt(file, buffer, wanted, got)) return TRUE;
    return TavFileGetPointerExt(file, &before) && TavFileGetFileSizeExt(file, &size) && before >= size;
}

inline BOOL WriteFile(HFILE file, const void* bytes, DWORD count, DWORD* written, void*) {
    return TavFileWriteExt(file, bytes, count, written);
}

inline BOOL GetFileSizeEx(HFILE file, LARGE_INTEGER* size) {
    return TavFileGetFileSizeExt(file, &size->QuadPart);
}

// Threads.
using HTHREAD = OpacTavThread*;
using LPTHREAD_START_ROUTINE = TavThreadProc;
inline HTHREAD CreateThread(void*, DWORD stackSize, LPTHREAD_START_ROUTINE entry, LPVOID parameter,
                            DWORD flags, DWORD*) {
    return TavCreateThread(entry, parameter, stackSize, flags);
}

// Synchronisation.
using CRITICAL_SECTION = MPCriticalRegionID;
using HSEMAPHORE = MPSemaphoreID;
using HEVENT = OpacTavEvent*;
#define InitializeCriticalSection TavInitCriticalSection
#define EnterCriticalSection TavEnterCriticalSection
#define LeaveCriticalSection TavLeaveCriticalSection
#define DeleteCriticalSection TavDeleteCriticalSection
#define SetEvent TavSetEvent

inline HSEMAPHORE CreateSemaphore(void*, LONG initial, LONG maximum, LPCWSTR) {
    return TavCreateSemaphore(static_cast<uint32_t>(initial), static_cast<uint32_t>(maximum));
}

inline HEVENT CreateEvent(void*, BOOL manualReset, BOOL initialState, LPCWSTR) {
    return TavCreateEvent(manualReset, initialState);
}

inline BOOL ReleaseSemaphore(HSEMAPHORE semaphore, LONG count, LONG*) {
    while (count > 0 && TavReleaseSemaphore(semaphore)) --count;
    return count == 0;
}

inline DWORD WaitForSingleObject(HTHREAD thread, int32_t timeout) {
    return TavWaitThread(thread, timeout);
}
inline DWORD WaitForSingleObject(HEVENT event, int32_t timeout) {
    return TavWaitEvent(event, timeout);
}
inline DWORD WaitForSingleObject(HSEMAPHORE semaphore, int32_t timeout) {
    return TavWaitSemaphore(semaphore, timeout);
}

inline BOOL CloseHandle(HFILE file) {
    return TavFileCloseExt(file) == 0;
}
inline BOOL CloseHandle(HTHREAD thread) {
    return TavCloseThreadRef(thread);
}
inline BOOL CloseHandle(HEVENT event) {
    return TavCloseEvent(event);
}
inline BOOL CloseHandle(HSEMAPHORE semaphore) {
    return TavCloseSemaphore(semaphore);
}
