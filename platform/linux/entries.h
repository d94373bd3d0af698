// All entries of a folder, one after another.
#pragma once

#include "platform/linux/references.h"
#include "platform/linux/system_calls.h"
#include "platform/linux/with_descriptors.h"

#include <cstring>
#include <fcntl.h>

// What a failure to read a folder means for something that was looked for in it: what may not be read shows
// nothing, but a host that has run out of something must not make things seem to be gone.
inline OSErr MissingBecause(OSErr failure) {
    return failure == tmfoErr || failure == memFullErr || failure == ioErr ? failure : fnfErr;
}

// Calls `visit(const DirectoryEntry&)` for every entry but "." and ".." until it gives true. The result code
// of opening or reading; 0 at the end or when `visit` stopped.
template <typename Visit>
OSErr VisitEntries(const FolderHandle& folder, Visit visit) {
    int descriptor =
        OpenSparingly([&] { return OpenName(folder.descriptor(), ".", O_RDONLY | O_DIRECTORY); });
    if (descriptor < 0) return LastError();
    struct Closer {
        int descriptor;
        ~Closer() { Close(descriptor); }
    } closer{descriptor};
    alignas(8) char buffer[32768];
    for (;;) {
        ssize_t size = ReadEntries(descriptor, buffer, sizeof buffer);
        if (size <= 0) return size < 0 ? LastError() : noErr;
        for (ssize_t at = 0; at < size;) {
            auto entry = reinterpret_cast<const DirectoryEntry*>(buffer + at);
            at += entry->length;
            bool dots = std::strcmp(entry->name, ".") == 0 || std::strcmp(entry->name, "..") == 0;
            if (!dots && visit(*entry)) return noErr;
        }
    }
}
