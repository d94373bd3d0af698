// Code bundles, on the dynamic loader. A bundle is a folder with Contents/MacOS/NAME, a framework, or a plain
// shared object; NAME comes from Contents/Info.plist where it says so, else from the folder's name. Unlike on
// the platform, a folder without an executable is no bundle, and code is unloaded with the last reference.
// Bundles in use stand in a list, so that loading one twice gives the same object; the loader runs outside
// the list's lock, because the code that it starts may load bundles itself.
//
// Order: finding the executable; the bundles in use; the operations.
#include "platform/bundles.h"

#include "platform/linux/cf_object.h"
#include "platform/linux/child_safe_mutex.h"
#include "platform/linux/current_task.h"
#include "platform/linux/names.h"
#include "platform/linux/property_list.h"
#include "platform/linux/string_object.h"
#include "platform/references.h"

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

struct OpaqueCFBundle : CFObject {
    std::string path;
    std::string executable;
    std::atomic<void*> code = nullptr;
    int owners = 1;
    OpaqueCFBundle* next = nullptr;
};

namespace {

// ---- Finding the executable

bool IsFile(const std::string& path) {
    struct stat facts;
    return stat(path.c_str(), &facts) == 0 && S_ISREG(facts.st_mode);
}

bool IsFolder(const std::string& path) {
    struct stat facts;
    return stat(path.c_str(), &facts) == 0 && S_ISDIR(facts.st_mode);
}

// The current folder in front of a relative path; a library's name is never looked for anywhere else.
std::string Absolute(const std::string& path) {
    if (path[0] == '/') return path;
    char* folder = getcwd(nullptr, 0);
    if (!folder) return "";
    std::string absolute = std::string(folder) + "/" + path;
    free(folder);
    return absolute;
}

// The path as it is on disk, where it may differ in letter case; empty when nothing is there.
std::string OnDisk(const std::string& path) {
    FSRef ref;
    char found[PATH_MAX];
    if (FSPathMakeRef(reinterpret_cast<const uint8_t*>(path.c_str()), &ref, nullptr) != noErr) return "";
    if (FSRefMakePath(&ref, reinterpret_cast<uint8_t*>(found), sizeof found) != noErr) return "";
    return found;
}

// The last component, without the extension.
std::string StemOf(const std::string& path) {
    std::string name = path.substr(path.rfind('/') + 1);
    size_t dot = name.rfind('.');
    return dot == std::string::npos || dot == 0 ? name : name.substr(0, dot);
}

// The executable of the bundle at `path`; empty when there is none.
std::string ExecutableOf(const std::string& path) {
    if (IsFile(path)) return path;
    if (!IsFolder(path)) return "";
    std::string contents = OnDisk(path + "/Contents");
    std::string name =
        contents.empty() ? "" : property_list::StringFor(contents + "/Info.plist", "CFBundleExecutable");
    if (name.empty() || name.find('/') != std::string::npos) name = StemOf(path);
    std::string candidates[] = {contents + "/MacOS/" + name, path + "/Versions/Current/" + name,
                                path + "/" + name};
    for (size_t i = contents.empty() ? 1 : 0; i < std::size(candidates); ++i)
        if (IsFile(candidates[i])) return candidates[i];
    return "";
}

// ---- The bundles in use

constinit ChildSafeMutex lock;
OpaqueCFBundle* inUse = nullptr;

void ReleaseBundle(CFObject* object) {
    auto* bundle = static_cast<OpaqueCFBundle*>(object);
    {
        const HeldLock held(lock);
        if (--bundle->owners > 0) return;
        OpaqueCFBundle** link = &inUse;
        while (*link != bundle) link = &(*link)->next;
        *link = bundle->next;
    }
    if (void* code = bundle->code) dlclose(code);
    delete bundle;
}

constexpr CFKind kBundleKind = {"bundle", ReleaseBundle};
constexpr CFKind kMainBundleKind = {"main bundle", [](CFObject*) {}};

// The bundle of this place, with one owner more; null when it is not in use.
OpaqueCFBundle* FindInUse(const std::string& path) {
    for (OpaqueCFBundle* bundle = inUse; bundle; bundle = bundle->next) {
        if (bundle->path != path) continue;
        ++bundle->owners;
        return bundle;
    }
    return nullptr;
}

std::string PathOf(CFURLRef url) {
    CFStringRef text = CFURLCopyFileSystemPath(url, kCFURLPOSIXPathStyle);
    if (!text) return "";
    std::string path(text->length * 3, '\0');
    size_t bytes = BytesFromUnits(text->units, text->length, path.data(), path.size());
    CFRelease(text);
    path.resize(bytes == kNotText ? 0 : bytes);
    return path;
}

OpaqueCFBundle* CreateBundle(CFURLRef url) {
    std::string path = PathOf(url);
    if (!path.empty()) path = OnDisk(Absolute(path));
    std::string executable = path.empty() ? "" : ExecutableOf(path);
    if (executable.empty()) return nullptr;

    const HeldLock held(lock);
    if (OpaqueCFBundle* bundle = FindInUse(path)) return bundle;
    inUse = new OpaqueCFBundle{{&kBundleKind}, std::move(path), std::move(executable), nullptr, 1, inUse};
    return inUse;
}

// The program's path without its Contents/MacOS/NAME, or its folder.
std::string MainBundlePath() {
    char program[PATH_MAX];
    ssize_t length = readlink("/proc/self/exe", program, sizeof program);
    if (length <= 0 || length == sizeof program) return "";
    std::string folder(program, static_cast<size_t>(length));
    folder.resize(folder.rfind('/'));
    constexpr char kInside[] = "/Contents/MacOS";
    constexpr size_t kInsideLength = sizeof kInside - 1;
    if (folder.size() > kInsideLength &&
        folder.compare(folder.size() - kInsideLength, kInsideLength, kInside) == 0)
        folder.resize(folder.size() - kInsideLength);
    return folder.empty() ? "/" : folder;
}

// The code of a bundle, loaded now if it was not; null when it cannot be.
void* CodeOf(CFBundleRef bundle) {
    if (void* code = bundle->code) return code;
    void* loaded =
        bundle->executable.empty() ? nullptr : dlopen(bundle->executable.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!loaded) return nullptr;
    void* before = nullptr;
    if (bundle->code.compare_exchange_strong(before, loaded)) return loaded;
    dlclose(loaded); // another thread was faster
    return before;
}

} // namespace

// ---- The operations

CFBundleRef CFBundleGetMainBundle() try {
    static OpaqueCFBundle bundle{{&kMainBundleKind}, MainBundlePath(), "", nullptr, 1, nullptr};
    return bundle.path.empty() ? nullptr : &bundle;
} catch (const std::bad_alloc&) {
    return nullptr;
}

CFURLRef CFBundleCopyBundleURL(CFBundleRef bundle) {
    OpaqueCFString* path = strings::Allocate(bundle->path.size(), false);
    if (!path) return nullptr;
    path->length = UnitsFromBytes(bundle->path.data(), bundle->path.size(), path->units, path->capacity);
    CFURLRef url = CFURLCreateWithFileSystemPath(nullptr, path, kCFURLPOSIXPathStyle, true);
    CFRelease(path);
    return url;
}

CFBundleRef CFBundleCreate(CFAllocatorRef, CFURLRef bundleURL) try {
    return bundleURL ? CreateBundle(bundleURL) : nullptr;
} catch (const std::bad_alloc&) {
    return nullptr;
}

Boolean CFBundleLoadExecutable(CFBundleRef bundle) {
    return bundle && CodeOf(bundle);
}

void* CFBundleGetFunctionPointerForName(CFBundleRef bundle, CFStringRef functionName) try {
    void* code = bundle && functionName ? CodeOf(bundle) : nullptr;
    if (!code) return nullptr;
    std::string name(static_cast<size_t>(CFStringGetLength(functionName)) + 1, '\0');
    bool isText = CFStringGetCString(functionName, name.data(), static_cast<CFIndex>(name.size()),
                                     kCFStringEncodingMacRoman);
    return isText ? dlsym(code, name.c_str()) : nullptr;
} catch (const std::bad_alloc&) {
    return nullptr;
}
