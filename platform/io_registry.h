// The I/O registry: block devices, what lies behind them, and their properties.
//
// An entry is a block device, and its parents are the devices that it is part of or stands on: the disk of a
// partition, the disks below a mapped volume. Entries and iterators belong to the caller until
// IOObjectRelease.
#pragma once

#include "platform/strings.h"

using mach_port_t = uint32_t;
using kern_return_t = int32_t;
using IOOptionBits = uint32_t;
using io_object_t = struct OpaqueIOObject*;
using io_iterator_t = io_object_t;
using io_registry_entry_t = io_object_t;
using io_service_t = io_object_t;
using CFDictionaryRef = const struct OpaqueCFDictionary*;
using CFMutableDictionaryRef = struct OpaqueCFDictionary*;
using CFBooleanRef = const struct OpaqueCFBoolean*;

constexpr mach_port_t MACH_PORT_NULL = 0;
constexpr io_object_t IO_OBJECT_NULL = nullptr;

constexpr IOOptionBits kIORegistryIterateRecursively = 1;
constexpr IOOptionBits kIORegistryIterateParents = 2;

#define kIOServicePlane "IOService"
#define kIOMediaClass "IOMedia"
#define kIOCDMediaClass "IOCDMedia"
#define kIODVDMediaClass "IODVDMedia"
#define kIOMediaWholeKey "Whole"
#define kIOMediaRemovableKey "Removable"
#define kIOMediaWritableKey "Writable"
#define kIOMediaEjectableKey "Ejectable"

extern "C" {

// The port through which the registry is asked, given back with mach_port_deallocate. Non-zero when the
// device tree cannot be reached.
kern_return_t IOMasterPort(mach_port_t bootstrapPort, mach_port_t* masterPort);
mach_port_t mach_task_self();
kern_return_t mach_port_deallocate(mach_port_t task, mach_port_t name);

// What to look for: the block device of that name ("sda1"). Null without a name or without memory.
CFMutableDictionaryRef IOBSDNameMatching(mach_port_t masterPort, uint32_t options, const char* bsdName);

// The devices that match, for IOIteratorNext; takes over the dictionary, on failure too. A device that does
// not exist gives an iterator without entries.
kern_return_t IOServiceGetMatchingServices(mach_port_t masterPort, CFDictionaryRef matching,
                                           io_iterator_t* existing);

// The next entry, or null behind the last.
io_object_t IOIteratorNext(io_iterator_t iterator);

// An iterator over the ancestors of an entry, nearest first, each once. The only plane is "IOService"; the
// options are recursive and parents together. Non-zero for others.
kern_return_t IORegistryEntryCreateIterator(io_registry_entry_t entry, const char* plane,
                                            IOOptionBits options, io_iterator_t* iterator);

// Whether an entry is of a class: "IOMedia" any disk or partition (a drive without a medium is none);
// "IOCDMedia" and "IODVDMedia" an optical drive with that medium.
Boolean IOObjectConformsTo(io_object_t object, const char* className);

// A property of a medium ("Whole", "Removable", "Writable", "Ejectable"), or null. The caller releases it.
CFTypeRef IORegistryEntryCreateCFProperty(io_registry_entry_t entry, CFStringRef key,
                                          CFAllocatorRef allocator, IOOptionBits options);
Boolean CFBooleanGetValue(CFBooleanRef boolean);

kern_return_t IOObjectRetain(io_object_t object);
kern_return_t IOObjectRelease(io_object_t object);

} // extern "C"
