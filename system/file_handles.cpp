// The handle of an open file is the number of its data fork; nothing else is kept.
#include "system/file_handles.h"

#include "copy/recursive_delete.h"
#include "platform/catalog.h"
#include "platform/forks.h"
#include "platform/objects.h"
#include "platform/references.h"
#include "vpath/key_paths.h"

#include <algorithm>

namespace {

constexpr int32_t kNoHandle = -1;

FSForkRefNum Fork(int32_t handle) {
    return static_cast<FSForkRefNum>(handle);
}

// The place of an object that need not exist: its folder, and its name in the platform's sense.
struct NewObject {
    FSRef parent;
    TavChar name[kPathUnits];
    uint32_t nameLength;
};

// Takes a path apart at its last "/", cutting it there, and finds the folder. False when there is no name.
// kept: only the folder's path has to be well-formed text. The name is the platform's affair, which has one
// for some that are not, although no reference leads to what it makes.
bool Locate(TavChar* path, NewObject* object) {
    TavChar* const slash = tav_wcsrchr(path, u'/');
    if (!slash || !slash[1]) return false;
    object->nameLength = tav_wcslen(slash + 1);
    tav_wcscpy(object->name, slash + 1);
    slash[1] = 0;
    char* utf8 = Tav0UTF8FromUTF16(path);
    if (!utf8) return false;
    const OSStatus result = FSPathMakeRef(reinterpret_cast<const uint8_t*>(utf8), &object->parent, nullptr);
    Tav0UTFRelease(utf8);
    return result == noErr;
}

OSErr CreateFile(const NewObject& object, FSRef* newRef) {
    return FSCreateFileUnicode(&object.parent, object.nameLength, object.name, kFSCatInfoNone, nullptr,
                               newRef, nullptr);
}

// Opens the data fork. A failure leaves the number as it is.
FSForkRefNum OpenData(const FSRef& ref, uint32_t flags) {
    FSForkRefNum fork = kNoHandle;
    HFSUniStr255 dataFork;
    FSGetDataForkName(&dataFork);
    FSOpenFork(&ref, dataFork.length, dataFork.unicode, static_cast<int8_t>(GetOpenFlags(flags)), &fork);
    return fork;
}

// Cuts an open file to no length. The platform does not do that to what it opened for reading only; another
// opening of the same file does it then.
bool Truncate(const FSRef& ref, uint32_t flags, int32_t handle) {
    if (TavFileSetFileSizeExt(handle, 0)) return true;
    if (handle == kNoHandle || (flags & TAV_FILE_WRITE)) return false;
    const int32_t writer = OpenData(ref, TAV_FILE_WRITE);
    if (writer == kNoHandle) return false;
    const bool done = TavFileSetFileSizeExt(writer, 0);
    TavFileCloseExt(writer);
    return done;
}

// Opens the file that stands in the way and cuts it to no length; `result` becomes 0 when that worked. The
// path is looked up once: its name may be another file's a moment later.
FSForkRefNum OpenTruncated(OpacTavFSRef* file, uint32_t flags, OSErr* result) {
    FSRef ref = {};
    const bool isFound = Tav0FSRToAbs(file, &ref, 0);
    const FSForkRefNum fork = isFound ? OpenData(ref, flags) : FSForkRefNum{kNoHandle};
    // kept: the comparison is with 0, so a failed open comes here as -1, which can neither be cut nor closed;
    // and a fork that cannot be cut keeps its number although it is closed.
    if (fork != 0) {
        if (Truncate(ref, flags, fork)) {
            *result = noErr;
        } else {
            TavFileCloseExt(fork);
        }
    }
    return fork;
}

int32_t OpenNew(const FSRef& newRef, uint32_t flags) {
    OpacTavFSRef* file = Tav0FSRCreateAbs(&newRef);
    if (!file) return kNoHandle;
    const int32_t handle = TavFileOpenExt(file, flags);
    Tav0FSRRelease(file);
    return handle;
}

} // namespace

int32_t GetOpenFlags(uint32_t flags) {
    const int32_t reading = flags & TAV_FILE_READ ? fsRdPerm : fsCurPerm;
    const int32_t writing = flags & TAV_FILE_WRITE ? fsWrPerm : fsCurPerm;
    return reading | writing;
}

int32_t TavFileOpenExt(OpacTavFSRef* file, uint32_t flags) {
    FSRef ref;
    return Tav0FSRToAbs(file, &ref, 0) ? OpenData(ref, flags) : kNoHandle;
}

// kept: the one result that is the platform's code.
int32_t TavFileCloseExt(int32_t handle) {
    return FSCloseFork(Fork(handle));
}

int32_t TavFileReadExt(int32_t handle, void* buffer, uint32_t count, uint32_t* bytesRead) {
    ByteCount actual = 0;
    const OSErr result = FSReadFork(Fork(handle), fsAtMark, 0, count, buffer, &actual);
    if (bytesRead) *bytesRead = actual;
    // kept: reading nothing at the end of the file is a failure.
    return (result == noErr || result == eofErr) && actual > 0;
}

int32_t TavFileWriteExt(int32_t handle, const void* buffer, uint32_t count, uint32_t* bytesWritten) {
    ByteCount actual = 0;
    const OSErr result = FSWriteFork(Fork(handle), fsAtMark, 0, count, buffer, &actual);
    if (bytesWritten) *bytesWritten = actual;
    return result == noErr && actual > 0;
}

int32_t TavFileSetPointerExt(int32_t handle, int64_t distance, int64_t* newPosition, uint32_t moveMethod) {
    uint16_t mode = fsFromStart;
    if (moveMethod == TAV_FILE_CURRENT) mode = fsFromMark;
    if (moveMethod == TAV_FILE_END) mode = fsFromLEOF;
    if (FSSetForkPosition(Fork(handle), mode, distance) != noErr) return 0;
    if (newPosition) FSGetForkPosition(Fork(handle), newPosition);
    return 1;
}

int32_t TavFileGetPointerExt(int32_t handle, int64_t* position) {
    return FSGetForkPosition(Fork(handle), position) == noErr;
}

int32_t TavFileGetFileSizeExt(int32_t handle, int64_t* size) {
    return FSGetForkSize(Fork(handle), size) == noErr;
}

int32_t TavFileSetFileSizeExt(int32_t handle, int64_t size) {
    return FSSetForkSize(Fork(handle), fsFromStart, size) == noErr;
}

int32_t TavFileCreateExt(OpacTavFSRef* file, uint32_t flags) {
    TavChar path[kPathUnits];
    NewObject object;
    if (!ReadPath(file, path) || !Locate(path, &object)) return kNoHandle;
    // A ":" in a path is a "/" in the platform's names. kept: folders are created without this.
    std::replace(object.name, object.name + object.nameLength, u':', u'/');

    FSForkRefNum fork = kNoHandle;
    FSRef newRef;
    OSErr result = CreateFile(object, &newRef);
    if (result == dupFNErr && (flags & TAV_FILE_REPLACE)) {
        if (TavFileDeleteExt(file)) result = CreateFile(object, &newRef);
    } else if (result == dupFNErr && (flags & TAV_FILE_TRUNCATE)) {
        fork = OpenTruncated(file, flags, &result);
    }
    if (result == noErr && fork == kNoHandle) fork = Fork(OpenNew(newRef, flags));
    return fork;
}

int32_t TavFileDeleteExt(OpacTavFSRef* file) {
    FSRef ref;
    return Tav0FSRToAbs(file, &ref, 0) && FSDeleteObjects(&ref) == noErr;
}

int32_t TavFolderCreateExt(OpacTavFSRef* folder) {
    TavChar path[kPathUnits];
    if (!ReadPath(folder, path)) return 0;
    const uint32_t length = tav_wcslen(path);
    if (length > 0 && path[length - 1] == u'/') path[length - 1] = 0;
    NewObject object;
    return Locate(path, &object) &&
           FSCreateDirectoryUnicode(&object.parent, object.nameLength, object.name, kFSCatInfoNone, nullptr,
                                    nullptr, nullptr, nullptr) == noErr;
}

int32_t TavFolderDeleteExt(OpacTavFSRef* folder) {
    FSRef ref;
    return Tav0FSRToAbs(folder, &ref, 0) && FSDeleteObject(&ref) == noErr;
}

int32_t TavFileMoveFileExt(OpacTavFSRef* file, OpacTavFSRef* destination) {
    FSRef ref;
    FSRef folder;
    return Tav0FSRToAbs(file, &ref, 0) && Tav0FSRToAbs(destination, &folder, 0) &&
           FSMoveObject(&ref, &folder, nullptr) == noErr;
}

int32_t TavFileRenameExt(OpacTavFSRef* file, const TavChar* newName, OpacTavFSRef** resultRef) {
    FSRef ref;
    FSRef renamed;
    if (!Tav0FSRToAbs(file, &ref, 0)) return 0;
    if (FSRenameUnicode(&ref, tav_wcslen(newName), newName, kTextEncodingUnknown, &renamed) != noErr)
        return 0;
    if (resultRef) *resultRef = Tav0FSRCreateAbs(&renamed);
    return 1;
}
