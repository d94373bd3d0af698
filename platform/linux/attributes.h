// Inside the provider: extended attributes, and an object held fast while its facts are changed.
#pragma once

#include "platform/linux/references.h"

#include <array>
#include <cstddef>
#include <ctime>
#include <sys/types.h>

// Access and content-modification time, as the system calls take them.
using FileTimes = std::array<timespec, 2>;

// The attribute in which metadata lives.
constexpr char kMetadataAttribute[] = "user.org.netatalk.Metadata";

// Reads an attribute of the entry `name`, not following it when it is a link. -1 on failure, with the cause
// for LastError().
ssize_t GetAttributeAt(int folder, const char* name, const char* attribute, void* value, size_t size);

// Whether the last attribute call failed because the volume has no attributes.
bool HasNoAttributes();

// An object, held so that nothing that takes its name meanwhile is changed in its place. Members give -1 on
// failure, with the cause for LastError(). Needs no right to the object itself.
class HeldObject {
public:
    HeldObject() = default;
    HeldObject(const HeldObject&) = delete;
    HeldObject& operator=(const HeldObject&) = delete;
    ~HeldObject();

    // -43 when the name stands for another object by now. `place` must outlive this.
    OSErr Hold(const Place& place);

    // Holds what `file`, which stays the caller's, is open on; `place` and the file must outlive this.
    OSErr Hold(const Place& place, int file);

    // Holds the regular file that a reference stands for where it was last seen, which saves a look at it, and
    // fills `place`. -43 when the longer way has to be taken.
    OSErr HoldGuessed(const FSRef& ref, Place& place);

    ssize_t GetAttribute(const char* attribute, void* value, size_t size) const;
    int SetAttribute(const char* attribute, const void* value, size_t size) const;
    int RemoveAttribute(const char* attribute) const;
    int SetMode(mode_t mode) const;
    int SetOwner(uid_t user, gid_t group) const;
    int SetTimes(const FileTimes& times) const;

    // The facts as they are now.
    OSErr Look(struct statx& facts) const;

    // The facts as they were when the object was held.
    const struct statx& facts() const { return facts_; }

private:
    OSErr Open(const Place& place);
    template <typename ByPath, typename ByDescriptor>
    auto Through(ByPath byPath, ByDescriptor byDescriptor) const;

    const Place* place_ = nullptr;
    int descriptor_ = -1;
    bool isOwn_ = true;   // to be closed at the end
    bool isFile_ = false; // open as a file, so that the calls for descriptors take it
    struct statx facts_ = {};
};

// Whether two sets of facts are of one object, as far as both tell.
bool SameObject(const struct statx& a, const struct statx& b);

// A descriptor that is closed at the end of its scope.
class Descriptor {
public:
    explicit Descriptor(int number = -1) : number_(number) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor();

    void Reset(int number);
    int Release();
    int number() const { return number_; }
    explicit operator bool() const { return number_ >= 0; }

private:
    int number_;
};
