// Forks: the byte sequences of a file. Each file has a data fork and a resource fork (the latter may be
// absent).
#pragma once

#include "platform/types.h"

using FSForkRefNum = int16_t;

constexpr int8_t fsCurPerm = 0;
constexpr int8_t fsRdPerm = 1;
constexpr int8_t fsWrPerm = 2;
constexpr int8_t fsRdWrPerm = 3;

constexpr uint16_t fsAtMark = 0;
constexpr uint16_t fsFromStart = 1;
constexpr uint16_t fsFromLEOF = 2;
constexpr uint16_t fsFromMark = 3;
constexpr uint16_t noCacheMask = 0x0020;

// No fork has that name, or the object has no such fork.
constexpr OSErr errFSBadForkName = -1402;
constexpr OSErr errFSForkNotFound = -1409;

using FSAllocationFlags = uint16_t;
constexpr FSAllocationFlags kFSAllocNoRoundUpMask = 0x0004;

// Where FSIterateForks stands; zeroed before the first call.
struct CatPositionRec {
    int32_t initialize;
    int16_t priv[6];
};

extern "C" {

// The names of the two forks: the empty name, and "RESOURCE_FORK".
OSErr FSGetDataForkName(HFSUniStr255* dataForkName);
OSErr FSGetResourceForkName(HFSUniStr255* resourceForkName);

// Creates the named fork. -1421 when a resource fork exists already; the data fork always exists, and
// creating it gives 0 on a local volume. -45 when the file is locked, -48 when something else has the name
// that the resource fork would need on the host, -43 for a folder, -54 for what is no file (a pipe, a socket,
// a device) and for a link's resource fork.
OSErr FSCreateFork(const FSRef* ref, UniCharCount forkNameLength, const UniChar* forkName);

// Opens a fork and gives it a number from 1 to 32767, its mark at 0. The current permission (0) is reading
// and writing where both are allowed, else reading. -54 for writing a locked object or a link's text, where
// the host denies it, and for what is no file; -43 for a folder, -1409 for a resource fork that the file has
// not, -1402 for another name, -36 for a broken one, -42 when no number or descriptor is left. On failure
// `forkRefNum` keeps what it held.
OSErr FSOpenFork(const FSRef* ref, UniCharCount forkNameLength, const UniChar* forkName, int8_t permissions,
                 FSForkRefNum* forkRefNum);

// -51 for a number that is not open, here and below.
OSErr FSCloseFork(FSForkRefNum forkRefNum);

// Reads or writes `requestCount` bytes at the mark (mode 0) or at a position, and leaves the mark behind
// them. `actualCount` (may be null) receives what was moved, also with an error; -39 when fewer bytes than
// asked for are left, -40 for a position before the start, -54 when the fork was not opened for that, -34
// when the volume is full.
OSErr FSReadFork(FSForkRefNum forkRefNum, uint16_t positionMode, int64_t positionOffset,
                 ByteCount requestCount, void* buffer, ByteCount* actualCount);
OSErr FSWriteFork(FSForkRefNum forkRefNum, uint16_t positionMode, int64_t positionOffset,
                  ByteCount requestCount, const void* buffer, ByteCount* actualCount);

// The mark may lie beyond the end; a position before the start gives -40 and leaves the mark.
OSErr FSSetForkPosition(FSForkRefNum forkRefNum, uint16_t positionMode, int64_t positionOffset);
OSErr FSGetForkPosition(FSForkRefNum forkRefNum, int64_t* position);

// The mark stays where it is when the size changes.
OSErr FSGetForkSize(FSForkRefNum forkRefNum, int64_t* forkSize);
OSErr FSSetForkSize(FSForkRefNum forkRefNum, uint16_t positionMode, int64_t positionOffset);

// Reserves space for `requestCount` bytes without changing the logical size; -34 when there is not enough. What
// a single block holds may be left to the write.
OSErr FSAllocateFork(FSForkRefNum forkRefNum, FSAllocationFlags flags, uint16_t positionMode,
                     int64_t positionOffset, uint64_t requestCount, uint64_t* actualCount);

// Between these two calls of a thread the provider may keep the file open that the thread makes and the one
// whose forks it lists, so that the calls that follow on them need not find them again. For one copy; calls do
// not nest. Results are the same without, but that others see the zeros which a new file is padded with, behind what was
// allocated for it, only when the next call needs them.
void PlatformKeepFilesOpen();
void PlatformCloseKeptFiles();

// The next fork of an object: name, logical and physical size; every output may be null. -1417 after the last
// one. Folders have no forks; -54 for what is no file. A resource fork that is broken is left out.
OSErr FSIterateForks(const FSRef* ref, CatPositionRec* forkIterator, HFSUniStr255* forkName,
                     int64_t* forkSize, uint64_t* forkPhysicalSize);

} // extern "C"
