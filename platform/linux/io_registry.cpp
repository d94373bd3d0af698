// The I/O registry (platform/io_registry.h), on what the device tree says of block devices (media.h).
//
// An entry is a block device as it was when the entry was made: unlike on the platform it does not follow
// what happens to the device, and whoever wants to know looks it up again. The ports are names without
// anything behind them.
//
// Sections: objects; ancestors; classes and properties; booleans and dictionaries; the calls.
#include "platform/io_registry.h"

#include "platform/linux/cf_object.h"
#include "platform/linux/media.h"

#include <algorithm>
#include <atomic>
#include <cassert>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <vector>

static constexpr mach_port_t kMasterPort = 1;
static constexpr mach_port_t kTaskPort = 2;
static constexpr kern_return_t kReturnNoMemory = -536870211;    // 0xE00002BD
static constexpr kern_return_t kReturnBadArgument = -536870206; // 0xE00002C2

// ---- Objects ----

using Entry = std::shared_ptr<const Media>;

// An entry has a device; an iterator has the devices that it will still give, the next one last.
struct OpaqueIOObject {
    std::atomic<int32_t> owners = 1;
    Entry media;
    std::vector<Entry> pending;
};

struct OpaqueCFDictionary : CFObject {
    std::string bsdName;
};

struct OpaqueCFBoolean : CFObject {
    bool value;
};

static io_iterator_t NewIterator(std::vector<Entry> entries) {
    std::reverse(entries.begin(), entries.end());
    return new OpaqueIOObject{.media = nullptr, .pending = std::move(entries)};
}

// ---- Ancestors ----

// All devices that one stands on, level by level, each once.
static std::vector<Entry> Ancestors(const Media& media) {
    std::vector<std::string> names = media.foundations;
    std::vector<Entry> found;
    for (size_t i = 0; i < names.size(); ++i) {
        Entry below = FindMedia(names[i]);
        if (!below) continue;
        for (const std::string& name : below->foundations)
            if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
        found.push_back(std::move(below));
    }
    return found;
}

// ---- Classes and properties ----

static bool IsOfClass(const Media& media, std::string_view name) {
    if (name == kIOMediaClass) return true;
    if (name == kIOCDMediaClass) return media.isCD;
    return name == kIODVDMediaClass && media.isDVD;
}

static constexpr struct {
    const char* key;
    bool Media::*value;
} kProperties[] = {{kIOMediaWholeKey, &Media::isWhole},
                   {kIOMediaRemovableKey, &Media::isRemovable},
                   {kIOMediaWritableKey, &Media::isWritable},
                   {kIOMediaEjectableKey, &Media::isRemovable}};

// ---- Booleans and dictionaries ----

static constexpr CFKind kBooleanKind{"CFBoolean", [](CFObject*) {}};
static constexpr CFKind kDictionaryKind{
    "CFDictionary", [](CFObject* object) { delete static_cast<OpaqueCFDictionary*>(object); }};

static OpaqueCFBoolean trueObject{{&kBooleanKind}, true};
static OpaqueCFBoolean falseObject{{&kBooleanKind}, false};

extern "C" Boolean CFBooleanGetValue(CFBooleanRef boolean) {
    return boolean->value;
}

// ---- The calls ----

extern "C" kern_return_t IOMasterPort(mach_port_t, mach_port_t* masterPort) {
    assert(masterPort);
    *masterPort = kMasterPort;
    return 0;
}

extern "C" mach_port_t mach_task_self() {
    return kTaskPort;
}

extern "C" kern_return_t mach_port_deallocate(mach_port_t task, mach_port_t name) {
    return task == kTaskPort && name == kMasterPort ? 0 : kReturnBadArgument;
}

extern "C" CFMutableDictionaryRef IOBSDNameMatching(mach_port_t, uint32_t, const char* bsdName) {
    if (!bsdName || !*bsdName) return nullptr;
    try {
        return new OpaqueCFDictionary{{&kDictionaryKind}, bsdName};
    } catch (...) {
        return nullptr;
    }
}

extern "C" kern_return_t IOServiceGetMatchingServices(mach_port_t, CFDictionaryRef matching,
                                                      io_iterator_t* existing) {
    assert(matching && existing);
    try {
        std::unique_ptr<const OpaqueCFDictionary> held(matching);
        std::vector<Entry> entries;
        if (Entry found = FindMedia(held->bsdName)) entries.push_back(std::move(found));
        *existing = NewIterator(std::move(entries));
        return 0;
    } catch (...) {
        return kReturnNoMemory;
    }
}

extern "C" io_object_t IOIteratorNext(io_iterator_t iterator) {
    assert(iterator);
    if (iterator->pending.empty()) return IO_OBJECT_NULL;
    io_object_t entry = new (std::nothrow) OpaqueIOObject;
    if (!entry) return IO_OBJECT_NULL;
    entry->media = std::move(iterator->pending.back());
    iterator->pending.pop_back();
    return entry;
}

extern "C" kern_return_t IORegistryEntryCreateIterator(io_registry_entry_t entry, const char* plane,
                                                       IOOptionBits options, io_iterator_t* iterator) {
    assert(entry && plane && iterator);
    if (std::string_view(plane) != kIOServicePlane || !entry->media ||
        options != (kIORegistryIterateRecursively | kIORegistryIterateParents))
        return kReturnBadArgument;
    try {
        *iterator = NewIterator(Ancestors(*entry->media));
        return 0;
    } catch (...) {
        return kReturnNoMemory;
    }
}

extern "C" Boolean IOObjectConformsTo(io_object_t object, const char* className) {
    assert(object && className);
    return object->media && object->media->isMedium && IsOfClass(*object->media, className);
}

extern "C" CFTypeRef IORegistryEntryCreateCFProperty(io_registry_entry_t entry, CFStringRef key,
                                                     CFAllocatorRef, IOOptionBits) {
    assert(entry && key);
    char name[32];
    if (!entry->media || !entry->media->isMedium) return nullptr;
    if (!CFStringGetCString(key, name, sizeof name, kCFStringEncodingUTF8)) return nullptr;
    for (const auto& property : kProperties)
        if (strcmp(name, property.key) == 0)
            return *entry->media.*property.value ? &trueObject : &falseObject;
    return nullptr;
}

extern "C" kern_return_t IOObjectRetain(io_object_t object) {
    if (!object) return kReturnBadArgument;
    object->owners.fetch_add(1, std::memory_order_relaxed);
    return 0;
}

extern "C" kern_return_t IOObjectRelease(io_object_t object) {
    if (!object) return kReturnBadArgument;
    if (object->owners.fetch_sub(1, std::memory_order_acq_rel) == 1) delete object;
    return 0;
}
