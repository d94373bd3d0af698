// Block devices, on libudev's device tree and its record of what the device manager found out about them.
//
// Above a partition is its disk; above a mapped or RAID volume are the devices that it stands on, so that
// such a volume is not "whole": a walk upwards goes on to the real disks, and an encrypted stick counts as a
// stick. An optical drive is a medium while a disc is in it, of the disc's kind, and so is any other drive
// whose size is not zero. Blu-ray and HD discs count as DVDs.
//
// Asking the tree takes dozens of system calls. The kernel numbers every change to it, so answers are kept
// while that number stands.
//
// Sections: devices; what a device is; memory.
#include "platform/linux/media.h"

#include "platform/linux/current_task.h"
#include "platform/linux/lasting.h"
#include "platform/linux/system_calls.h"
#include "platform/process.h"

#include <algorithm>
#include <chrono>
#include <dirent.h>
#include <fcntl.h>
#include <libudev.h>
#include <map>
#include <string_view>
#include <unistd.h>

static constexpr char kChanges[] = "/sys/kernel/uevent_seqnum";

// The device manager writes its record a moment after the kernel has told of a change.
static constexpr std::chrono::seconds kSettlingTime{2};

// ---- Devices ----

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

static std::string NameOf(udev_device* device) {
    const char* name = device ? udev_device_get_sysname(device) : nullptr;
    return name ? std::string(name) : std::string();
}

static bool Attribute(udev_device* device, const char* name, std::string_view value) {
    const char* text = udev_device_get_sysattr_value(device, name);
    return text && text == value;
}

static bool Property(udev_device* device, const char* name) {
    const char* text = udev_device_get_property_value(device, name);
    return text && std::string_view(text) == "1";
}

static bool HasPropertyBeginning(udev_device* device, std::string_view start) {
    udev_list_entry* entry = udev_device_get_properties_list_entry(device);
    for (; entry; entry = udev_list_entry_get_next(entry)) {
        const char* value = udev_list_entry_get_value(entry);
        if (std::string_view(udev_list_entry_get_name(entry)).starts_with(start) && value && *value == '1')
            return true;
    }
    return false;
}

// ---- What a device is ----

static bool IsPartition(udev_device* device) {
    const char* type = udev_device_get_devtype(device);
    return type && std::string_view(type) == "partition";
}

// The names in a folder of the tree. The standard library's iterator would end the process when memory runs
// out.
static std::vector<std::string> NamesIn(const std::string& folder) {
    std::vector<std::string> names;
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(opendir(folder.c_str()), closedir);
    while (const dirent* entry = entries ? readdir(entries.get()) : nullptr)
        if (entry->d_name[0] != '.') names.push_back(entry->d_name);
    return names;
}

// The library has no call for what a mapped or RAID volume stands on; the tree has a folder.
static std::vector<std::string> Foundations(udev_device* device) {
    if (IsPartition(device)) {
        std::string disk = NameOf(udev_device_get_parent_with_subsystem_devtype(device, "block", "disk"));
        if (disk.empty()) return {};
        return {disk};
    }
    std::vector<std::string> names = NamesIn(udev_device_get_syspath(device) + std::string("/slaves"));
    std::sort(names.begin(), names.end());
    return names;
}

static bool IsOptical(udev_device* device) {
    return Property(device, "ID_CDROM") || NameOf(device).starts_with("sr");
}

// Where the device manager has not looked at the drive, its size has to tell whether a disc is in it.
static bool HasMedium(udev_device* device) {
    if (Property(device, "ID_CDROM")) return Property(device, "ID_CDROM_MEDIA");
    const char* size = udev_device_get_sysattr_value(device, "size");
    return size && std::string_view(size) != "0";
}

static bool HasDVD(udev_device* device) {
    return HasPropertyBeginning(device, "ID_CDROM_MEDIA_DVD") ||
           HasPropertyBeginning(device, "ID_CDROM_MEDIA_BD") ||
           HasPropertyBeginning(device, "ID_CDROM_MEDIA_HDDVD");
}

// The drive of a finished disc calls itself writable; the disc is not.
static bool IsWritable(udev_device* device, bool isOptical) {
    if (Attribute(device, "ro", "1")) return false;
    if (!isOptical || Property(device, "ID_CDROM_MEDIA_DVD_RAM")) return true;
    const char* state = udev_device_get_property_value(device, "ID_CDROM_MEDIA_STATE");
    return state && (std::string_view(state) == "blank" || std::string_view(state) == "appendable");
}

static std::shared_ptr<const Media> Describe(udev_device* device) {
    auto media = std::make_shared<Media>();
    bool isOptical = IsOptical(device);
    media->isMedium = HasMedium(device);
    media->isDVD = isOptical && HasDVD(device);
    media->isCD = isOptical && !media->isDVD;
    media->foundations = Foundations(device);
    media->isWhole = media->foundations.empty() && !IsPartition(device);
    media->isRemovable = isOptical || Attribute(device, "removable", "1");
    media->isWritable = IsWritable(device, isOptical);
    return media;
}

static std::shared_ptr<const Media> LookUp(const std::string& name) {
    Tree tree(udev_new());
    if (!tree) throw std::bad_alloc();
    Device device(udev_device_new_from_subsystem_sysname(tree.get(), "block", name.c_str()));
    return device ? Describe(device.get()) : nullptr;
}

static std::string LookUpName(dev_t number) {
    Tree tree(udev_new());
    if (!tree) throw std::bad_alloc();
    Device device(udev_device_new_from_devnum(tree.get(), 'b', number));
    return NameOf(device.get());
}

// ---- Memory ----

namespace {

using Clock = std::chrono::steady_clock;

struct Known {
    std::string changes;       // the kernel's number; "" when it is not to be had
    Clock::time_point since{}; // when that number was first seen
    bool isSettled = false;
    std::map<std::string, std::shared_ptr<const Media>> media;
    std::map<dev_t, std::string> names;

    void Forget() {
        media.clear();
        names.clear();
    }
};

} // namespace

static constinit Lasting<Known> known;

[[gnu::destructor]] static void ForgetAll() {
    known.End();
}

// Around a fork the lock is held, so that the child finds the answers whole.
static void LockKnown() {
    known.lock.lock();
}
static void UnlockKnown() {
    known.lock.unlock();
}

[[gnu::constructor(105)]] static void HandleForks() {
    (void)PlatformAtFork(LockKnown, UnlockKnown, UnlockKnown);
}

static std::string CountChanges() {
    char text[32];
    int file = Retry([] { return open(kChanges, O_RDONLY | O_CLOEXEC); });
    if (file < 0) return {};
    ssize_t size = ReadFully(file, text, sizeof text, 0);
    Close(file);
    return size > 0 ? std::string(text, static_cast<size_t>(size)) : std::string();
}

// Drops answers that a change may have made wrong. False when there is no telling, so that nothing may be
// kept.
static bool Refresh() {
    std::string changes = CountChanges();
    if (changes.empty() || changes != known->changes) {
        known->Forget();
        known->changes = changes;
        known->since = Clock::now();
        known->isSettled = false;
    } else if (!known->isSettled && Clock::now() - known->since > kSettlingTime) {
        known->Forget();
        known->isSettled = true;
    }
    return !changes.empty();
}

std::shared_ptr<const Media> FindMedia(const std::string& name) {
    HeldLock lock(known.lock);
    bool mayKeep = Refresh();
    if (auto found = known->media.find(name); found != known->media.end()) return found->second;
    auto media = LookUp(name);
    if (mayKeep && media) known->media.emplace(name, media);
    return media;
}

std::string DeviceName(dev_t device) {
    HeldLock lock(known.lock);
    bool mayKeep = Refresh();
    if (auto found = known->names.find(device); found != known->names.end()) return found->second;
    std::string name = LookUpName(device);
    if (mayKeep && !name.empty()) known->names.emplace(device, name);
    return name;
}
