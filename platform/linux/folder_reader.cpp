// Names in a folder, through getdents64 with a large buffer: the C library's reader hides the size of its
// batches and cannot be told to go through one again. The descriptor is opened anew, since the place in a
// listing belongs to the open file and the descriptors of folders are shared.
#include "platform/linux/folder_reader.h"

#include "platform/linux/errors.h"
#include "platform/linux/system_calls.h"

#include <dirent.h>
#include <fcntl.h>
#include <new>
#include <unistd.h>
#include <utility>

static constexpr size_t kBatchBytes = 32768;

FolderReader::FolderReader(FolderReader&& other) noexcept
    : descriptor_(std::exchange(other.descriptor_, -1)), batch_(std::move(other.batch_)),
      position_(std::exchange(other.position_, 0)), size_(std::exchange(other.size_, 0)),
      isFirstBatch_(std::exchange(other.isFirstBatch_, false)), ended_(std::exchange(other.ended_, false)) {}

OSErr FolderReader::Open(int folder) {
    Close();
    batch_.reset(new (std::nothrow) std::byte[kBatchBytes]);
    if (!batch_) return memFullErr;
    descriptor_ = OpenName(folder, ".", O_RDONLY | O_DIRECTORY);
    if (descriptor_ >= 0) return noErr;
    const OSErr result = LastError();
    batch_.reset();
    return result;
}

void FolderReader::Close() {
    ::Close(descriptor_);
    descriptor_ = -1;
    batch_.reset();
    position_ = size_ = 0;
    isFirstBatch_ = ended_ = false;
}

// Reads the next batch. The one in hand stays when nothing follows it, so that it can be gone through again.
OSErr FolderReader::Fill() {
    if (ended_) return errFSNoMoreItems;
    const ssize_t count = ReadEntries(descriptor_, batch_.get(), kBatchBytes);
    const OSErr error = count < 0 ? LastError() : noErr;
    // A folder that has been deleted has no entries any more.
    if (error != noErr && error != fnfErr) return error;
    if (count <= 0) {
        ended_ = true;
        return errFSNoMoreItems;
    }
    isFirstBatch_ = size_ == 0;
    position_ = 0;
    size_ = static_cast<size_t>(count);
    return noErr;
}

static bool IsDotOrDotDot(const char* name) {
    return name[0] == '.' && (name[1] == 0 || (name[1] == '.' && name[2] == 0));
}

OSErr FolderReader::Next(const char*& name, unsigned& format) {
    for (;;) {
        if (position_ == size_) {
            const OSErr result = Fill();
            if (result != noErr) return result;
        }
        const auto* entry = reinterpret_cast<const DirectoryEntry*>(batch_.get() + position_);
        position_ += entry->length;
        name = entry->name;
        format = DTTOIF(entry->type);
        if (!IsDotOrDotDot(name)) return noErr;
    }
}

OSErr FolderReader::Rewind() {
    position_ = 0;
    if (isFirstBatch_) return noErr;
    size_ = 0;
    ended_ = false;
    return lseek(descriptor_, 0, SEEK_SET) < 0 ? LastError() : noErr;
}
