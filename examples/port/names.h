// The Windows names that the indexer uses, said in TavPort's. This is all that stands between the two: the program
// beside it was written against the names on the left.
#pragma once

static_assert(sizeof(wchar_t) == 2, "compile with -fshort-wchar");

#include <TavPort.h>

// Before the names below, which are macros of its functions' names.
#include <cstring>
#include <cwchar>
#include <filesystem>
#include <string>
#include <variant>

using BOOL = int32_t;
using DWORD = uint32_t;
using LONG = int32_t;
using LPVOID = void*;
using WCHAR = TavChar;
using LPCWSTR = const WCHAR*;
using UINT = uint32_t;
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
#define WAIT_FAILED TAV_WAIT_ABANDONED

// Windows has one kind of handle; here each has a type of its own, and this one remembers which it holds.
struct HANDLE
    : std::variant<std::nullptr_t, int32_t, TavFindSearch*, OpacTavThread*, OpacTavEvent*, MPSemaphoreID> {
    using variant::variant;
    bool operator!() const { return index() == 0; }
};
inline const HANDLE INVALID_HANDLE_VALUE = int32_t(-1);

// What a handle holds; 0 when it holds something else.
template <typename Kind>
Kind As(const HANDLE& handle) {
    const Kind* held = std::get_if<Kind>(&handle);
    return held ? *held : Kind();
}

// A new handle, null for a null.
template <typename Kind>
HANDLE HandleOf(Kind made) {
    return made ? HANDLE(made) : HANDLE();
}

inline BOOL CloseHandle(HANDLE handle) {
    struct Close {
        BOOL operator()(std::nullptr_t) const { return FALSE; }
        BOOL operator()(int32_t file) const { return TavFileCloseExt(file) == 0; }
        BOOL operator()(TavFindSearch*) const { return FALSE; } // that is FindClose's
        BOOL operator()(OpacTavThread* thread) const { return TavCloseThreadRef(thread); }
        BOOL operator()(OpacTavEvent* event) const { return TavCloseEvent(event); }
        BOOL operator()(MPSemaphoreID semaphore) const { return TavCloseSemaphore(semaphore); }
    };
    return std::visit(Close(), handle);
}

// Wide text.
#define wcslen tav_wcslen
#define wcscpy tav_wcscpy
#define wcscmp tav_wcscmp
#define _snwprintf tav_snwprintf
#define PathAppend TavPathAppend
#define PathIsDirectory TavPathIsDirectory

// Text in UTF-8, up to its terminator (a length of -1). Without room they tell how much is needed.
#define CP_UTF8 65001u
#define MB_ERR_INVALID_CHARS 8u
#define WC_ERR_INVALID_CHARS 128u

inline int MultiByteToWideChar(UINT, DWORD, const char* bytes, int, WCHAR* out, int room) {
    WCHAR* text = Tav0UTF16FromUTF8(bytes);
    if (!text) return 0;
    const int needed = static_cast<int>(wcslen(text)) + 1;
    if (out && room >= needed) wcscpy(out, text);
    Tav0UTFRelease(text);
    return room == 0 || room >= needed ? needed : 0;
}

inline int WideCharToMultiByte(UINT, DWORD, LPCWSTR text, int, char* out, int room, const char*, BOOL*) {
    char* bytes = Tav0UTF8FromUTF16(text);
    if (!bytes) return 0;
    const int needed = static_cast<int>(std::strlen(bytes)) + 1;
    if (out && room >= needed) std::strcpy(out, bytes);
    Tav0UTFRelease(bytes);
    return room == 0 || room >= needed ? needed : 0;
}

// TavPort's paths are absolute. Gives 0 for what does not fit.
inline DWORD GetFullPathNameW(LPCWSTR name, DWORD room, WCHAR* out, WCHAR**) {
    char bytes[4 * MAX_PATH];
    if (!WideCharToMultiByte(CP_UTF8, 0, name, -1, bytes, sizeof bytes, nullptr, nullptr)) return 0;
    std::error_code error;
    const std::string path = std::filesystem::absolute(bytes, error).lexically_normal().string();
    if (error) return 0;
    const int units = MultiByteToWideChar(CP_UTF8, 0, path.c_str(), -1, out, static_cast<int>(room));
    return units > 0 ? static_cast<DWORD>(units - 1) : 0;
}

// Folders.
using WIN32_FIND_DATAW = TavFindDataW;
#define FILE_ATTRIBUTE_DIRECTORY TAV_FILE_ATTRIBUTE_DIRECTORY

// A "/" in a found name stands for the ":" that it has in a path.
inline BOOL NameForPaths(BOOL isFound, WIN32_FIND_DATAW* found) {
    for (WCHAR* unit = found->cFileName; isFound && *unit; ++unit) {
        if (*unit == L'/') *unit = L':';
    }
    return isFound;
}

inline HANDLE FindFirstFileW(LPCWSTR path, WIN32_FIND_DATAW* found) {
    TavFindSearch* search = TavFindFirstFile(path, found);
    return NameForPaths(search != TAV_INVALID_FIND, found) ? HANDLE(search) : INVALID_HANDLE_VALUE;
}

inline BOOL FindNextFileW(HANDLE search, WIN32_FIND_DATAW* found) {
    return NameForPaths(TavFindNextFile(As<TavFindSearch*>(search), found), found);
}

inline BOOL FindClose(HANDLE search) {
    return TavFindClose(As<TavFindSearch*>(search));
}

// Files. They are named by references here, which live as long as the call.
#define GENERIC_READ TAV_FILE_READ
#define GENERIC_WRITE TAV_FILE_WRITE
#define OPEN_EXISTING 3u
#define CREATE_ALWAYS 2u

inline HANDLE CreateFileW(LPCWSTR name, DWORD access, DWORD, void*, DWORD disposition, DWORD, void*) {
    OpacTavFSRef* file = Tav0FSRCreateWithPath(name);
    const HANDLE handle = disposition == OPEN_EXISTING ? TavFileOpenExt(file, access)
                                                       : TavFileCreateExt(file, access | TAV_FILE_TRUNCATE);
    if (file) Tav0FSRRelease(file);
    return handle;
}

// At the end of a file Windows reads 0 bytes and calls that success.
inline BOOL ReadFile(HANDLE handle, LPVOID buffer, DWORD wanted, DWORD* got, void*) {
    const int32_t file = As<int32_t>(handle);
    int64_t before = 0;
    int64_t size = 0;
    if (TavFileReadExt(file, buffer, wanted, got)) return TRUE;
    return TavFileGetPointerExt(file, &before) && TavFileGetFileSizeExt(file, &size) && before >= size;
}

inline BOOL WriteFile(HANDLE file, const void* bytes, DWORD count, DWORD* written, void*) {
    return TavFileWriteExt(As<int32_t>(file), bytes, count, written);
}

inline BOOL GetFileSizeEx(HANDLE file, LARGE_INTEGER* size) {
    return TavFileGetFileSizeExt(As<int32_t>(file), &size->QuadPart);
}

// Threads.
using LPTHREAD_START_ROUTINE = TavThreadProc;
inline HANDLE CreateThread(void*, DWORD stackSize, LPTHREAD_START_ROUTINE entry, LPVOID parameter,
                           DWORD flags, DWORD*) {
    return HandleOf(TavCreateThread(entry, parameter, stackSize, flags));
}

// Synchronisation.
using CRITICAL_SECTION = MPCriticalRegionID;
#define InitializeCriticalSection TavInitCriticalSection
#define EnterCriticalSection TavEnterCriticalSection
#define LeaveCriticalSection TavLeaveCriticalSection
#define DeleteCriticalSection TavDeleteCriticalSection

inline HANDLE CreateSemaphore(void*, LONG initial, LONG maximum, LPCWSTR) {
    return HandleOf(TavCreateSemaphore(static_cast<uint32_t>(initial), static_cast<uint32_t>(maximum)));
}

inline HANDLE CreateEvent(void*, BOOL manualReset, BOOL initialState, LPCWSTR) {
    return HandleOf(TavCreateEvent(manualReset, initialState));
}

inline BOOL SetEvent(HANDLE event) {
    return TavSetEvent(As<OpacTavEvent*>(event));
}

inline BOOL ReleaseSemaphore(HANDLE semaphore, LONG count, LONG*) {
    while (count > 0 && TavReleaseSemaphore(As<MPSemaphoreID>(semaphore))) --count;
    return count == 0;
}

inline DWORD WaitForSingleObject(HANDLE handle, int32_t timeout) {
    struct Wait {
        int32_t timeout;
        DWORD operator()(OpacTavThread* thread) const { return TavWaitThread(thread, timeout); }
        DWORD operator()(OpacTavEvent* event) const { return TavWaitEvent(event, timeout); }
        DWORD operator()(MPSemaphoreID semaphore) const { return TavWaitSemaphore(semaphore, timeout); }
        DWORD operator()(std::nullptr_t) const { return WAIT_FAILED; }
        DWORD operator()(TavFindSearch*) const { return WAIT_FAILED; }
        DWORD operator()(int32_t) const { return WAIT_FAILED; } // a file
    };
    return std::visit(Wait{timeout}, handle);
}
