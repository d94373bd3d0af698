#include "paths/released.h"
#include "platform/io_registry.h"
#include "support/device_tree.h"

#include <gtest/gtest.h>
#include <optional>

using Names = std::vector<std::string>;

// The entry of a device by name, or null.
static io_object_t Entry(const char* name) {
    mach_port_t port;
    EXPECT_EQ(IOMasterPort(MACH_PORT_NULL, &port), 0);
    CFMutableDictionaryRef matching = IOBSDNameMatching(port, 0, name);
    io_iterator_t services = nullptr;
    EXPECT_EQ(IOServiceGetMatchingServices(port, matching, &services), 0);
    EXPECT_NE(services, nullptr);
    io_object_t entry = IOIteratorNext(services);
    EXPECT_EQ(IOIteratorNext(services), nullptr);
    EXPECT_EQ(IOObjectRelease(services), 0);
    EXPECT_EQ(mach_port_deallocate(mach_task_self(), port), 0);
    return entry;
}

class Held {
public:
    explicit Held(const char* name) : entry_(Entry(name)) {}
    ~Held() {
        if (entry_) IOObjectRelease(entry_);
    }
    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;
    operator io_object_t() const { return entry_; }

private:
    io_object_t entry_;
};

// The entry's value of a property; nothing when it has none.
static std::optional<bool> Property(io_object_t entry, const char* name) {
    Released<CFStringRef> key(CFStringCreateWithCString(nullptr, name, kCFStringEncodingUTF8));
    CFTypeRef value = IORegistryEntryCreateCFProperty(entry, key.get(), nullptr, 0);
    if (!value) return std::nullopt;
    bool holds = CFBooleanGetValue(static_cast<CFBooleanRef>(value));
    CFRelease(value);
    return holds;
}

// "Whole", "Removable", "Writable", "Ejectable" as letters, "-" for false, "?" for none.
static std::string Properties(const char* device) {
    Held entry(device);
    std::string letters;
    for (const char* name :
         {kIOMediaWholeKey, kIOMediaRemovableKey, kIOMediaWritableKey, kIOMediaEjectableKey}) {
        std::optional<bool> value = Property(entry, name);
        letters += !value ? '?' : *value ? name[0] : '-';
    }
    return letters;
}

static Names Classes(const char* device) {
    Held entry(device);
    Names names;
    for (const char* name : {kIOMediaClass, kIOCDMediaClass, kIODVDMediaClass})
        if (IOObjectConformsTo(entry, name)) names.push_back(name);
    return names;
}

static size_t CountAncestors(const char* device) {
    Held entry(device);
    io_iterator_t ancestors = nullptr;
    EXPECT_EQ(IORegistryEntryCreateIterator(entry, kIOServicePlane, 3, &ancestors), 0);
    size_t count = 0;
    for (io_object_t next; (next = IOIteratorNext(ancestors)); ++count) IOObjectRelease(next);
    IOObjectRelease(ancestors);
    return count;
}

TEST(IORegistry, Partition_IsAMediumThatIsNotWhole) {
    DeviceTree tree;
    AddNvmeDisk(tree);
    EXPECT_EQ(Classes("nvme0n1p2"), Names{"IOMedia"});
    EXPECT_EQ(Properties("nvme0n1p2")[0], '-');
    EXPECT_EQ(CountAncestors("nvme0n1p2"), 1u);
}

TEST(IORegistry, Disk_IsWholeAndWritableAndStays) {
    DeviceTree tree;
    AddNvmeDisk(tree);
    EXPECT_EQ(Classes("nvme0n1"), Names{"IOMedia"});
    EXPECT_EQ(Properties("nvme0n1"), "W-W-");
    EXPECT_EQ(CountAncestors("nvme0n1"), 0u);
}

TEST(IORegistry, Stick_IsRemovableAndEjectable) {
    DeviceTree tree;
    AddUsbStick(tree);
    EXPECT_EQ(Properties("sdb"), "WRWE");
}

TEST(IORegistry, ReadOnlyDisk_IsNotWritable) {
    DeviceTree tree;
    AddUsbDisk(tree);
    EXPECT_EQ(Properties("sdc"), "W---");
}

TEST(IORegistry, ReaderWithoutCard_IsNoMedium) {
    DeviceTree tree;
    AddEmptyReader(tree);
    EXPECT_EQ(Classes("sdd"), Names{});
    EXPECT_EQ(Properties("sdd"), "????");
}

TEST(IORegistry, CD_IsACDMedium) {
    DeviceTree tree;
    AddCD(tree);
    EXPECT_EQ(Classes("sr0"), (Names{"IOMedia", "IOCDMedia"}));
    EXPECT_EQ(Properties("sr0"), "WR-E");
}

TEST(IORegistry, DVDInAWriter_IsADVDMediumAndReadOnlyWhenFinished) {
    DeviceTree tree;
    AddDVD(tree);
    EXPECT_EQ(Classes("sr1"), (Names{"IOMedia", "IODVDMedia"}));
    EXPECT_EQ(Properties("sr1"), "WR-E");
}

TEST(IORegistry, BlankDisc_IsWritable) {
    DeviceTree tree;
    tree.Add({"/devices/pci0000:00/block/sr2",
              "disk",
              11,
              2,
              {{"size", "1"}, {"removable", "1"}, {"ro", "0"}},
              {{"ID_CDROM", "1"},
               {"ID_CDROM_MEDIA", "1"},
               {"ID_CDROM_MEDIA_DVD_R", "1"},
               {"ID_CDROM_MEDIA_STATE", "blank"}}});
    EXPECT_EQ(Classes("sr2"), (Names{"IOMedia", "IODVDMedia"}));
    EXPECT_EQ(Properties("sr2"), "WRWE");
}

TEST(IORegistry, OpticalDriveWithoutDisc_IsNoMedium) {
    DeviceTree tree;
    tree.Add({"/devices/pci0000:00/block/sr2",
              "disk",
              11,
              2,
              {{"size", "2097151"}, {"removable", "1"}, {"ro", "0"}},
              {{"ID_CDROM", "1"}, {"ID_CDROM_DVD", "1"}}});
    EXPECT_EQ(Classes("sr2"), Names{});
}

TEST(IORegistry, OpticalDriveThatNobodyLookedAt_CountsAsCD) {
    DeviceTree tree;
    tree.Add({"/devices/pci0000:00/block/sr2",
              "disk",
              11,
              2,
              {{"size", "1310720"}, {"removable", "1"}, {"ro", "0"}}});
    EXPECT_EQ(Classes("sr2"), (Names{"IOMedia", "IOCDMedia"}));
}

TEST(IORegistry, Loop_IsAWholeFixedMedium) {
    DeviceTree tree;
    AddLoop(tree);
    EXPECT_EQ(Classes("loop0"), Names{"IOMedia"});
    EXPECT_EQ(Properties("loop0"), "W-W-");
}

TEST(IORegistry, MappedVolume_StandsOnItsPartitionAndThatOnItsDisk) {
    DeviceTree tree;
    AddMapped(tree);
    EXPECT_EQ(Properties("dm-0")[0], '-');
    EXPECT_EQ(CountAncestors("dm-0"), 2u);
}

TEST(IORegistry, RaidVolume_StandsOnAllItsMembers) {
    DeviceTree tree;
    AddRaid(tree);
    EXPECT_EQ(Properties("md0")[0], '-');
    EXPECT_EQ(CountAncestors("md0"), 4u);
    EXPECT_EQ(CountAncestors("sda1"), 1u);
}

TEST(IORegistry, UnknownDevice_GivesAnEmptyIterator) {
    DeviceTree tree;
    AddLoop(tree);
    EXPECT_EQ(Held("sdz"), nullptr);
}

TEST(IORegistry, NoName_MatchesNothing) {
    EXPECT_EQ(IOBSDNameMatching(1, 0, nullptr), nullptr);
    EXPECT_EQ(IOBSDNameMatching(1, 0, ""), nullptr);
}

TEST(IORegistry, OtherPlaneOrOptions_AreRefused) {
    DeviceTree tree;
    AddLoop(tree);
    Held entry("loop0");
    io_iterator_t ancestors = nullptr;
    EXPECT_NE(IORegistryEntryCreateIterator(entry, "IOUSB", 3, &ancestors), 0);
    EXPECT_NE(IORegistryEntryCreateIterator(entry, kIOServicePlane, 1, &ancestors), 0);
    EXPECT_EQ(ancestors, nullptr);
}

TEST(IORegistry, UnknownPropertyAndClass_AreNone) {
    DeviceTree tree;
    AddLoop(tree);
    Held entry("loop0");
    EXPECT_EQ(Property(entry, "Leaf"), std::nullopt);
    EXPECT_FALSE(IOObjectConformsTo(entry, "IOBlockStorageDevice"));
}

TEST(IORegistry, UnpluggedDevice_IsNotFoundAnyMore) {
    DeviceTree tree;
    AddUsbStick(tree);
    EXPECT_NE(Held("sdb"), nullptr);
    tree.Unplug(kStick + "/sdb1");
    tree.Unplug(kStick);
    EXPECT_EQ(Held("sdb"), nullptr);
    EXPECT_EQ(Held("sdb1"), nullptr);
}

TEST(IORegistry, DiscPutIn_IsSeenByTheNextLookUp) {
    DeviceTree tree;
    std::string drive = "/devices/pci0000:00/block/sr2";
    tree.Add(
        {drive, "disk", 11, 2, {{"size", "1310720"}, {"removable", "1"}, {"ro", "0"}}, {{"ID_CDROM", "1"}}});
    EXPECT_EQ(Classes("sr2"), Names{});
    tree.SetProperty(drive, "ID_CDROM_MEDIA", "1");
    tree.SetProperty(drive, "ID_CDROM_MEDIA_CD", "1");
    EXPECT_EQ(Classes("sr2"), (Names{"IOMedia", "IOCDMedia"}));
}

TEST(IORegistry, RetainedEntry_OutlivesOneRelease) {
    DeviceTree tree;
    AddLoop(tree);
    Held entry("loop0");
    EXPECT_EQ(IOObjectRetain(entry), 0);
    EXPECT_EQ(IOObjectRelease(entry), 0);
    EXPECT_TRUE(IOObjectConformsTo(entry, kIOMediaClass));
    EXPECT_NE(IOObjectRelease(nullptr), 0);
}
