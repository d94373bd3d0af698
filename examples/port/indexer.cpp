// Indexes a folder: walks it, lets a pool of threads read every file, writes a line for each into an index, and
// prints the largest files and those that hold the same.
// usage: indexer FOLDER INDEX-FILE
//
// Written in the Windows manner; names.h says its names in TavPort's.
#include "names.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

const int kWorkers = 4;
const size_t kShown = 5;

struct File {
    std::vector<WCHAR> path; // terminated
    int64_t size = 0;
    uint64_t sum = 0;
    bool readable = false;
};

// What the walk hands to the workers and they hand back. `lock` guards the vectors; `waiting` counts the files that
// nobody has taken yet, and one more for each worker when the walk is over.
struct Index {
    CRITICAL_SECTION lock = 0;
    HANDLE waiting = nullptr;
    HANDLE finished = nullptr; // set by the last worker to leave
    int working = kWorkers;
    std::vector<File> files;
    size_t taken = 0;
};

std::string Utf8(LPCWSTR text) {
    const DWORD strict = WC_ERR_INVALID_CHARS;
    const int room = WideCharToMultiByte(CP_UTF8, strict, text, -1, nullptr, 0, nullptr, nullptr);
    if (room == 0) return "(a name that is no text)";
    std::string result(static_cast<size_t>(room), 0);
    WideCharToMultiByte(CP_UTF8, strict, text, -1, &result[0], room, nullptr, nullptr);
    result.pop_back(); // the terminator
    return result;
}

// FNV-1a over the content.
bool ReadContent(LPCWSTR path, File& file) {
    HANDLE handle = CreateFileW(path, GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    if (handle == INVALID_HANDLE_VALUE) return false;
    LARGE_INTEGER size = {};
    BOOL ok = GetFileSizeEx(handle, &size);
    file.size = size.QuadPart;
    file.sum = 0xcbf29ce484222325u;
    std::vector<unsigned char> buffer(1 << 16);
    DWORD got = 1;
    while (ok && got > 0) {
        ok = ReadFile(handle, buffer.data(), static_cast<DWORD>(buffer.size()), &got, nullptr);
        for (DWORD i = 0; ok && i < got; ++i) file.sum = (file.sum ^ buffer[i]) * 0x100000001b3u;
    }
    CloseHandle(handle);
    return ok;
}

// The number of a file that nobody has taken, or -1 when there will be none any more.
int TakeFile(Index& index, std::vector<WCHAR>& path) {
    WaitForSingleObject(index.waiting, INFINITE);
    EnterCriticalSection(&index.lock);
    int number = -1;
    if (index.taken < index.files.size()) {
        number = static_cast<int>(index.taken++);
        path = index.files[number].path;
    }
    LeaveCriticalSection(&index.lock);
    return number;
}

DWORD WINAPI Work(LPVOID parameter) {
    Index& index = *static_cast<Index*>(parameter);
    std::vector<WCHAR> path;
    for (int number = TakeFile(index, path); number >= 0; number = TakeFile(index, path)) {
        File read;
        read.readable = ReadContent(path.data(), read);
        EnterCriticalSection(&index.lock);
        File& file = index.files[number];
        file.size = read.size;
        file.sum = read.sum;
        file.readable = read.readable;
        LeaveCriticalSection(&index.lock);
    }
    EnterCriticalSection(&index.lock);
    const bool last = --index.working == 0;
    LeaveCriticalSection(&index.lock);
    if (last) SetEvent(index.finished);
    return 0;
}

void AddFile(Index& index, LPCWSTR path) {
    File file;
    file.path.assign(path, path + wcslen(path) + 1);
    EnterCriticalSection(&index.lock);
    index.files.push_back(file);
    LeaveCriticalSection(&index.lock);
    ReleaseSemaphore(index.waiting, 1, nullptr);
}

void Walk(Index& index, LPCWSTR folder) {
    WCHAR path[MAX_PATH];
    if (wcslen(folder) + 3 > MAX_PATH) return;
    wcscpy(path, folder);
    PathAppend(path, L"*");
    WIN32_FIND_DATAW found;
    HANDLE search = FindFirstFileW(path, &found);
    if (search == INVALID_HANDLE_VALUE) return;
    do {
        if (wcscmp(found.cFileName, L".") == 0 || wcscmp(found.cFileName, L"..") == 0) continue;
        if (wcslen(folder) + 1 + wcslen(found.cFileName) + 1 > MAX_PATH) continue;
        wcscpy(path, folder);
        PathAppend(path, found.cFileName);
        if (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
            Walk(index, path);
        } else {
            AddFile(index, path);
        }
    } while (FindNextFileW(search, &found));
    FindClose(search);
}

bool StartWorkers(Index& index, std::vector<HANDLE>& threads) {
    for (int i = 0; i < kWorkers; ++i) {
        HANDLE thread = CreateThread(nullptr, 0, Work, &index, 0, nullptr);
        if (!thread) return false;
        threads.push_back(thread);
    }
    return true;
}

// A line for each file: its size, the sum over its content, its path.
bool WriteIndex(const std::vector<File>& files, LPCWSTR name) {
    HANDLE handle = CreateFileW(name, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    if (handle == INVALID_HANDLE_VALUE) return false;
    BOOL ok = TRUE;
    for (const File& file : files) {
        WCHAR numbers[64];
        _snwprintf(numbers, 63, L"%12lld %08x%08x ", static_cast<long long>(file.size),
                   static_cast<unsigned>(file.sum >> 32), static_cast<unsigned>(file.sum));
        const std::string line = Utf8(numbers) + Utf8(file.path.data()) + "\n";
        DWORD written = 0;
        ok = ok && WriteFile(handle, line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
    }
    return CloseHandle(handle) && ok;
}

bool ByContent(const File& a, const File& b) {
    if (a.size != b.size) return a.size > b.size;
    return a.sum != b.sum ? a.sum < b.sum : wcscmp(a.path.data(), b.path.data()) < 0;
}

void PrintLargest(const std::vector<File>& files) {
    std::printf("Largest:\n");
    for (size_t i = 0; i < files.size() && i < kShown; ++i) {
        std::printf("%12lld  %s\n", static_cast<long long>(files[i].size),
                    Utf8(files[i].path.data()).c_str());
    }
}

void PrintDuplicates(const std::vector<File>& files) {
    std::printf("The same content:\n");
    for (size_t i = 1; i < files.size(); ++i) {
        const File& before = files[i - 1];
        if (files[i].size == 0 || files[i].size != before.size || files[i].sum != before.sum) continue;
        std::printf("    %s\n  = %s\n", Utf8(before.path.data()).c_str(), Utf8(files[i].path.data()).c_str());
    }
}

bool Build(Index& index, LPCWSTR folder) {
    std::vector<HANDLE> threads;
    if (!StartWorkers(index, threads)) {
        std::fprintf(stderr, "indexer: no thread can be started\n");
        std::exit(1);
    }
    Walk(index, folder);
    ReleaseSemaphore(index.waiting, kWorkers, nullptr);
    const bool finished = WaitForSingleObject(index.finished, INFINITE) == WAIT_OBJECT_0;
    for (HANDLE thread : threads) {
        WaitForSingleObject(thread, INFINITE);
        CloseHandle(thread);
    }
    return finished;
}

// The absolute path that an argument means.
bool GetPath(const char* argument, WCHAR (&path)[MAX_PATH]) {
    WCHAR given[MAX_PATH];
    return MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, argument, -1, given, MAX_PATH) &&
           GetFullPathNameW(given, MAX_PATH, path, nullptr);
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: indexer FOLDER INDEX-FILE\n");
        return 2;
    }
    WCHAR folder[MAX_PATH];
    WCHAR output[MAX_PATH];
    if (!GetPath(argv[1], folder) || !PathIsDirectory(folder)) {
        std::fprintf(stderr, "indexer: %s is no folder\n", argv[1]);
        return 2;
    }
    if (!GetPath(argv[2], output)) {
        std::fprintf(stderr, "indexer: %s is no path\n", argv[2]);
        return 2;
    }

    Index index;
    InitializeCriticalSection(&index.lock);
    index.waiting = CreateSemaphore(nullptr, 0, 0x7fffffff, nullptr);
    index.finished = CreateEvent(nullptr, TRUE, FALSE, nullptr);
    const bool finished = Build(index, folder);
    CloseHandle(index.finished);
    CloseHandle(index.waiting);
    DeleteCriticalSection(&index.lock);

    std::vector<File> files;
    for (const File& file : index.files) {
        if (file.readable) files.push_back(file);
    }
    std::sort(files.begin(), files.end(), ByContent);
    const bool written = WriteIndex(files, output);
    std::printf("%zu files, %zu of them could not be read\n", index.files.size(),
                index.files.size() - files.size());
    PrintLargest(files);
    PrintDuplicates(files);
    const bool printed = std::fflush(stdout) == 0 && !std::ferror(stdout);
    if (!written) std::fprintf(stderr, "indexer: %s cannot be written\n", argv[2]);
    if (!printed) std::fprintf(stderr, "indexer: the output cannot be written\n");
    return finished && written && printed ? 0 : 1;
}
