// The I/O registry (platform/io_registry.h) on libudev's device tree, as it is at the moment of each
// question.
//
// An entry is a block device. Above a partition is its disk; above a mapped or RAID volume are the devices
// that it stands on, so that such a volume is not "whole": the walk upwards goes on to the real disks, and an
// encrypted stick counts as a stick. An optical drive is a medium while a disc is in it, of the disc's kind,
// and so is any other drive whose size is not zero. Blu-ray and HD discs count as DVDs.
//
// Sections: objects; ancestors; classes and properties; booleans and dictionaries; the calls.
#include "platform/io_registry.h"

#include "platform/linux/cf_object.h"

#include <algorithm>
#include <atomic>
#include <cassert>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <libudev.h>
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

namespace {

struct DeviceRelease {
    void operator()(udev_device* device) const { udev_device_unref(device); }
};
using Device = std::unique_ptr<udev_device, DeviceRelease>;

struct TreeRelease {
    void operator()(udev* tree) const { udev_unref(tree); }
};
using Tree = std::unique_ptr<udev, TreeRelease>;

} // namespace

// An entry has a device; an iterator has the devices that it will still give, the next one last.
struct OpaqueIOObject {
    std::atomic<int32_t> owners = 1;
    Device device;
    std::vector<Device> pending;
};

struct OpaqueCFDictionary : CFObject {
    std::string bsdName;
};

struct OpaqueCFBoolean : CFObject {
    bool value;
};

static Device Another(udev_device* device) {
    return Device(udev_device_ref(device));
}

static io_iterator_t NewIterator(std::vector<Device> devices) {
    std::reverse(devices.begin(), devices.end());
    return new OpaqueIOObject{.device = nullptr, .pending = std::move(devices)};
}

// ---- Ancestors ----

static bool IsPartition(udev_device* device) {
    const char* type = udev_device_get_devtype(device);
    return type && std::string_view(type) == "partition";
}

// The devices that a mapped or RAID volume stands on. The library has no call for them; the tree has a
// folder.
static std::vector<Device> Foundations(udev_device* device) {
    std::vector<std::string> names;
    std::error_code error;
    std::filesystem::path folder = std::filesystem::path(udev_device_get_syspath(device)) / "slaves";
    for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error))
        names.push_back(entry->path().filename().string());
    std::sort(names.begin(), names.end());
    std::vector<Device> devices;
    for (const std::string& name : names) {
        Device below(
            udev_device_new_from_subsystem_sysname(udev_device_get_udev(device), "block", name.c_str()));
        if (below) devices.push_back(std::move(below));
    }
    return devices;
}

static std::vector<Device> Parents(udev_device* device) {
    std::vector<Device> parents;
    if (!IsPartition(device)) return Foundations(device);
    if (udev_device* disk = udev_device_get_parent_with_subsystem_devtype(device, "block", "disk"))
        parents.push_back(Another(disk));
    return parents;
}

static bool Holds(const std::vector<Device>& devices, udev_device* wanted) {
    std::string_view path = udev_device_get_syspath(wanted);
    return std::any_of(devices.begin(), devices.end(),
                       [&](const Device& device) { return path == udev_device_get_syspath(device.get()); });
}

// All ancestors, level by level.
static std::vector<Device> Ancestors(udev_device* device) {
    std::vector<Device> found = Parents(device);
    for (size_t i = 0; i < found.size(); ++i) {
        for (Device& parent : Parents(found[i].get()))
            if (!Holds(found, parent.get())) found.push_back(std::move(parent));
    }
    return found;
}

// ---- Classes and properties ----

static bool Attribute(udev_device* device, const char* name, std::string_view value) {
    const char* text = udev_device_get_sysattr_value(device, name);
    return text && text == value;
}

static bool Property(udev_device* device, const char* name) {
    const char* text = udev_device_get_property_value(device, name);
    return text && std::string_view(text) == "1";
}

static bool IsOptical(udev_device* device) {
    const char* name = udev_device_get_sysname(device);
    return Property(device, "ID_CDROM") || (name && std::string_view(name).starts_with("sr"));
}

// Where the device manager has not looked at the drive, its size has to tell whether a disc is in it.
static bool HasMedium(udev_device* device) {
    if (Property(device, "ID_CDROM")) return Property(device, "ID_CDROM_MEDIA");
    const char* size = udev_device_get_sysattr_value(device, "size");
    return size && std::string_view(size) != "0";
}

static bool HasPropertyBeginning(udev_device* device, std::string_view start) {
    for (udev_list_entry* entry = udev_device_get_properties_list_entry(device); entry;
         entry = udev_list_entry_get_next(entry)) {
        const char* value = udev_list_entry_get_value(entry);
        if (std::string_view(udev_list_entry_get_name(entry)).starts_with(start) && value && *value == '1')
            return true;
    }
    return false;
}

static bool IsDVD(udev_device* device) {
    return IsOptical(device) && (HasPropertyBeginning(device, "ID_CDROM_MEDIA_DVD") ||
                                 HasPropertyBeginning(device, "ID_CDROM_MEDIA_BD") ||
                                 HasPropertyBeginning(device, "ID_CDROM_MEDIA_HDDVD"));
}

static bool IsWhole(udev_device* device) {
    return !IsPartition(device) && Foundations(device).empty();
}

static bool IsRemovable(udev_device* device) {
    return IsOptical(device) || Attribute(device, "removable", "1");
}

// The drive of a finished disc calls itself writable; the disc is not.
static bool IsWritable(udev_device* device) {
    if (Attribute(device, "ro", "1")) return false;
    if (!IsOptical(device) || Property(device, "ID_CDROM_MEDIA_DVD_RAM")) return true;
    const char* state = udev_device_get_property_value(device, "ID_CDROM_MEDIA_STATE");
    return state && (std::string_view(state) == "blank" || std::string_view(state) == "appendable");
}

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
        Tree tree(udev_new());
        if (!tree) return kReturnNoMemory;
        std::vector<Device> devices;
        Device found(udev_device_new_from_subsystem_sysname(tree.get(), "block", held->bsdName.c_str()));
        if (found) devices.push_back(std::move(found));
        *existing = NewIterator(std::move(devices));
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
    entry->device = std::move(iterator->pending.back());
    iterator->pending.pop_back();
    return entry;
}

extern "C" kern_return_t IORegistryEntryCreateIterator(io_registry_entry_t entry, const char* plane,
                                                       IOOptionBits options, io_iterator_t* iterator) {
    assert(entry && plane && iterator);
    if (std::string_view(plane) != kIOServicePlane || !entry->device ||
        options != (kIORegistryIterateRecursively | kIORegistryIterateParents))
        return kReturnBadArgument;
    try {
        *iterator = NewIterator(Ancestors(entry->device.get()));
        return 0;
    } catch (...) {
        return kReturnNoMemory;
    }
}

extern "C" Boolean IOObjectConformsTo(io_object_t object, const char* className) {
    assert(object && className);
    udev_device* device = object->device.get();
    if (!device || !HasMedium(device)) return 0;
    std::string_view wanted = className;
    if (wanted == kIOMediaClass) return 1;
    if (wanted == kIODVDMediaClass) return IsDVD(device);
    return wanted == kIOCDMediaClass && IsOptical(device) && !IsDVD(device);
}

extern "C" CFTypeRef IORegistryEntryCreateCFProperty(io_registry_entry_t entry, CFStringRef key,
                                                     CFAllocatorRef, IOOptionBits) {
    assert(entry && key);
    static constexpr struct {
        const char* key;
        bool (*holds)(udev_device*);
    } kProperties[] = {{kIOMediaWholeKey, IsWhole},
                       {kIOMediaRemovableKey, IsRemovable},
                       {kIOMediaWritableKey, IsWritable},
                       {kIOMediaEjectableKey, IsRemovable}};
    char name[32];
    udev_device* device = entry->device.get();
    if (!device || !HasMedium(device) || !CFStringGetCString(key, name, sizeof name, kCFStringEncodingUTF8))
        return nullptr;
    try {
        for (const auto& property : kProperties)
            if (strcmp(name, property.key) == 0) return property.holds(device) ? &trueObject : &falseObject;
    } catch (...) {
    }
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
