// Inside the provider: the names in a folder, read in large batches through a descriptor of its own.
#pragma once

#include "platform/types.h"

#include <cstddef>
#include <memory>

class FolderReader {
public:
    FolderReader() = default;
    FolderReader(FolderReader&& other) noexcept;
    FolderReader& operator=(FolderReader&&) = delete;
    ~FolderReader() { Close(); }

    // Starts at the beginning of the folder that `folder` is open on. -5000 when it may not be listed.
    OSErr Open(int folder);

    // The next entry other than "." and "..": its name, which holds until the next call, and its type as the
    // format bits of a mode (0 where the file system does not tell). -1417 after the last one, and again from
    // then on.
    OSErr Next(const char*& name, unsigned& format);

    // Goes back to the beginning; the system is only asked again when the folder did not fit in the first
    // batch.
    OSErr Rewind();

    // Gives descriptor and buffer back.
    void Close();

    bool IsOpen() const { return descriptor_ >= 0; }
    int descriptor() const { return descriptor_; }

private:
    OSErr Fill();

    int descriptor_ = -1;
    std::unique_ptr<std::byte[]> batch_;
    size_t position_ = 0, size_ = 0;
    bool isFirstBatch_ = false; // the batch in hand is the folder's first
    bool ended_ = false;        // nothing follows the batch in hand
};
