// Code bundles, on the dynamic loader. A bundle is a folder with Contents/MacOS/NAME, a framework, or a plain
// shared object; NAME comes from the property list where it says so, else from the folder's name. Unlike on
// the platform, a folder with neither code nor a list is no bundle, and code is unloaded with the last reference.
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
#include "platform/linux/system_calls.h"
#include "platform/references.h"

#include <dlfcn.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <cstdlib>
#include <cxxabi.h>
#include <link.h>
#include <memory>
#include <new>
#include <string>
#include <utility>

struct OpaqueCFBundle : CFObject {
    std::string path; // without links, so that a place has one; the main bundle's is looked up when asked for
    std::string executable;
    std::atomic<void*> code = nullptr;
    std::atomic<bool> isBroken = false; // an initialiser of its code ended by an exception
    int owners = 1;
    OpaqueCFBundle* next = nullptr;
};

namespace {

// ---- Finding the executable

bool IsFile(const std::string& path) {
    struct stat facts;
    return Retry([&] { return stat(path.c_str(), &facts); }) == 0 && S_ISREG(facts.st_mode);
}

bool IsFolder(const std::string& path) {
    struct stat facts;
    return Retry([&] { return stat(path.c_str(), &facts); }) == 0 && S_ISDIR(facts.st_mode);
}

// The current folder in front of a relative path; a library's name is never looked for anywhere else.
std::string Absolute(const std::string& path) {
    if (path[0] == '/') return path;
    char folder[PATH_MAX];
    if (!getcwd(folder, sizeof folder)) return "";
    return std::string(folder) + "/" + path;
}

// The path without links; empty when nothing is there.
std::string WithoutLinks(const std::string& path) {
    char resolved[PATH_MAX];
    return realpath(path.c_str(), resolved) ? resolved : "";
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

// Where a folder that is a bundle keeps its property list and its code.
struct Layout {
    const char* list;
    const char* code;
};
constexpr Layout kLayouts[] = {
    {"/Contents/Info.plist", "/Contents/MacOS/"},
    {"/Versions/Current/Resources/Info.plist", "/Versions/Current/"},
    {"/Resources/Info.plist", "/"},
};

// What there is at a place that may be a bundle.
struct Finding {
    bool isBundle = false;
    std::string executable = {}; // empty when it has no code
};

// A folder laid out like that: a bundle when it has code or a list.
Finding LookIn(const std::string& folder, const Layout& layout) {
    const std::string list = OnDisk(folder + layout.list);
    std::string name = list.empty() ? "" : property_list::StringFor(list, "CFBundleExecutable");
    if (name.empty() || name.find('/') != std::string::npos) name = StemOf(folder);
    std::string executable = OnDisk(folder + layout.code + name);
    if (IsFile(executable)) return {true, std::move(executable)};
    return {IsFile(list)};
}

// The first layout with code counts, and without any a property list makes a bundle all the same.
Finding LookAt(const std::string& path) {
    if (IsFile(path)) return {true, path};
    Finding found;
    if (!IsFolder(path)) return found;
    for (const Layout& layout : kLayouts) {
        Finding here = LookIn(path, layout);
        if (!here.executable.empty()) return here;
        found.isBundle |= here.isBundle;
    }
    return found;
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
OpaqueCFBundle mainBundle = {{&kMainBundleKind}, {}, {}, nullptr, false, 1, nullptr};

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
    constexpr auto release = [](CFStringRef text) { CFRelease(text); };
    const std::unique_ptr<const OpaqueCFString, decltype(release)> text(
        CFURLCopyFileSystemPath(url, kCFURLPOSIXPathStyle), release);
    if (!text) return "";
    std::string path(text->length * 3, '\0');
    size_t bytes = BytesFromUnits(text->units, text->length, path.data(), path.size());
    path.resize(bytes == kNotText ? 0 : bytes);
    return path;
}

OpaqueCFBundle* CreateBundle(CFURLRef url) {
    std::string path = PathOf(url);
    if (!path.empty()) path = OnDisk(Absolute(path));
    if (path.empty()) return nullptr;
    const std::string given = std::exchange(path, WithoutLinks(path));
    Finding found = LookAt(given);
    if (found.executable.empty()) found = LookAt(path); // by the name that a linked folder really has
    if (!found.isBundle || path.empty()) return nullptr;

    const HeldLock held(lock);
    if (OpaqueCFBundle* bundle = FindInUse(path)) return bundle;
    inUse = new OpaqueCFBundle{
        {&kBundleKind}, std::move(path), std::move(found.executable), nullptr, false, 1, inUse};
    return inUse;
}

// The program's path without its Contents/MacOS/NAME, or its folder.
std::string MainBundlePath() {
    char program[PATH_MAX];
    ssize_t length = Retry([&] { return readlink("/proc/self/exe", program, sizeof program); });
    if (length <= 0 || length == sizeof program) return "";
    std::string folder(program, static_cast<size_t>(length));
    folder.resize(folder.rfind('/'));
    constexpr char kInside[] = "/Contents/MacOS";
    constexpr size_t kInsideLength = sizeof kInside - 1;
    // In any letter case, as the folders inside other bundles are found.
    if (folder.size() >= kInsideLength &&
        strcasecmp(folder.c_str() + folder.size() - kInsideLength, kInside) == 0)
        folder.resize(folder.size() - kInsideLength);
    return folder.empty() ? "/" : folder;
}

// The loader's own call, whose declaration promises that nothing is thrown.
extern "C" void* Open(const char* path, int mode) __asm__("dlopen");

// Loads code; null when that fails. An initialiser that throws leaves its module loaded half made, and with it
// the loader's lock to this thread; `isBroken` is set then. A thread may be ended by the C library inside.
void* Load(const std::string& executable, std::atomic<bool>& isBroken) {
    try {
        return Open(executable.c_str(), RTLD_NOW | RTLD_LOCAL);
    } catch (...) {
        if (!abi::__cxa_current_exception_type()) throw; // no exception, but what ends a thread
        isBroken = true;
        return nullptr;
    }
}

// Keeps a broken bundle in use for good, like its code: loading that again would give it half made.
void Keep(CFBundleRef bundle) {
    const HeldLock held(lock);
    ++bundle->owners;
}

// The code of a bundle, loaded now if it was not; null when it cannot be.
void* CodeOf(CFBundleRef bundle) {
    if (bundle->executable.empty() || bundle->isBroken) return nullptr;
    if (void* code = bundle->code) return code;
    void* loaded = Load(bundle->executable, bundle->isBroken);
    if (bundle->isBroken) Keep(bundle);
    if (!loaded) return nullptr;
    void* before = nullptr;
    if (bundle->code.compare_exchange_strong(before, loaded)) return loaded;
    dlclose(loaded); // another thread was faster
    return before;
}

// Whether an address is in the code of this handle, not of a library that it depends on.
bool IsIn(void* code, const void* address) {
    link_map* module = nullptr;
    link_map* owner = nullptr;
    Dl_info facts;
    return dlinfo(code, RTLD_DI_LINKMAP, &module) == 0 &&
           dladdr1(address, &facts, reinterpret_cast<void**>(&owner), RTLD_DL_LINKMAP) != 0 &&
           owner == module;
}

} // namespace

// ---- The operations

CFBundleRef CFBundleGetMainBundle() {
    return &mainBundle;
}

CFURLRef CFBundleCopyBundleURL(CFBundleRef bundle) try {
    const std::string place = bundle == &mainBundle ? MainBundlePath() : bundle->path;
    OpaqueCFString* path = place.empty() ? nullptr : strings::Allocate(place.size(), false);
    if (!path) return nullptr;
    path->length = UnitsFromBytes(place.data(), place.size(), path->units, path->capacity);
    CFURLRef url = CFURLCreateWithFileSystemPath(nullptr, path, kCFURLPOSIXPathStyle, true);
    CFRelease(path);
    return url;
} catch (const std::bad_alloc&) {
    return nullptr;
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
    // The loader looks into the libraries that the code depends on as well.
    void* address = isText ? dlsym(code, name.c_str()) : nullptr;
    return address && IsIn(code, address) ? address : nullptr;
} catch (const std::bad_alloc&) {
    return nullptr;
}
