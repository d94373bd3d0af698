#include "copy/fork_copy.h"

#include "copy/linked_list.h"

#include <cstring>

constexpr uint32_t kDiskBlock = 512;

// Whole blocks keep writes on local volumes aligned. The rest of the block is cleared, for it is on disk
// until the fork is cut back.
static ByteCount RoundUpToBlock(ByteCount count, CopyParams* params) {
    ByteCount rounded = (count + kDiskBlock - 1) / kDiskBlock * kDiskBlock;
    std::memset(params->copyBuffer + count, 0, rounded - count);
    return rounded;
}

OSErr WriteFork(FSForkRefNum sourceRefNum, FSForkRefNum destRefNum, CopyParams* params, uint64_t forkSize) {
    constexpr uint16_t kMode = fsAtMark | noCacheMask;
    OSErr result = FSAllocateFork(destRefNum, kFSAllocNoRoundUpMask, fsFromStart, 0, forkSize, nullptr);
    uint64_t remaining = forkSize;
    while (result == noErr && remaining > 0) {
        bool isLast = remaining <= params->copyBufferSize;
        ByteCount count = isLast ? static_cast<ByteCount>(remaining) : params->copyBufferSize;
        result = FSReadFork(sourceRefNum, kMode, 0, count, params->copyBuffer, nullptr);
        if (result != noErr) break;
        ByteCount toWrite = isLast && params->copyingToLocalVolume ? RoundUpToBlock(count, params) : count;
        result = FSWriteFork(destRefNum, kMode, 0, toWrite, params->copyBuffer, nullptr);
        remaining -= count;
    }
    if (result == noErr && params->copyingToLocalVolume && forkSize % kDiskBlock != 0)
        result = FSSetForkSize(destRefNum, fsFromStart, static_cast<int64_t>(forkSize));
    return result;
}

OSErr CopyForks(const FSRef* source, const FSRef* dest, CopyParams* params) {
    return params->copyingToDropBox ? CopyForksToDropBox(source, dest, params)
                                    : CopyForksToDisk(source, dest, params);
}

// Copies one fork that exists on both sides.
static OSErr CopyOneFork(const FSRef* source, const FSRef* dest, CopyParams* params, const HFSUniStr255& name,
                         uint64_t size) {
    FSForkRefNum destRefNum, sourceRefNum;
    OSErr result = FSOpenFork(dest, name.length, name.unicode, fsWrPerm, &destRefNum);
    if (result != noErr) return result;
    result = FSOpenFork(source, name.length, name.unicode, fsRdPerm, &sourceRefNum);
    bool sourceIsOpen = result == noErr;
    if (sourceIsOpen) result = WriteFork(sourceRefNum, destRefNum, params, size);
    // What the close of a written fork reports is data that did not reach the disk.
    OSErr closed = FSCloseFork(destRefNum);
    if (result == noErr) result = closed;
    if (sourceIsOpen) FSCloseFork(sourceRefNum);
    return result;
}

OSErr CopyForksToDisk(const FSRef* source, const FSRef* dest, CopyParams* params) {
    CatPositionRec position{};
    OSErr result = noErr;
    while (result == noErr) {
        HFSUniStr255 name;
        int64_t size;
        result = FSIterateForks(source, &position, &name, &size, nullptr);
        if (result != noErr) break;
        result = FSCreateFork(dest, name.length, name.unicode);
        if (result == errFSForkExists && !params->copyingToLocalVolume) result = noErr;
        if (result == noErr && size > 0)
            result = CopyOneFork(source, dest, params, name, static_cast<uint64_t>(size));
    }
    return result == errFSNoMoreItems ? noErr : result;
}

void MyCloseForkProc(void* data) {
    auto fork = static_cast<ForkTrackerRec*>(data);
    if (fork->forkDestRefNum != 0) FSCloseFork(fork->forkDestRefNum);
    DisposePtr(reinterpret_cast<Ptr>(fork));
}

// Creates one fork of a file in a drop box and, when it is to hold anything, opens it.
static OSErr OpenTrackedFork(const FSRef* dest, ForkTrackerRec* fork) {
    OSErr result = FSCreateFork(dest, fork->forkName.length, fork->forkName.unicode);
    if (result == afpAccessDenied) result = noErr;
    if (result == noErr && fork->forkSize > 0)
        result =
            FSOpenFork(dest, fork->forkName.length, fork->forkName.unicode, fsWrPerm, &fork->forkDestRefNum);
    return result;
}

OSErr OpenAllForks(const FSRef* dest, GenLinkedList* forkList) {
    CatPositionRec position{};
    OSErr result = noErr;
    while (result == noErr) {
        HFSUniStr255 name;
        int64_t size;
        result = FSIterateForks(dest, &position, &name, &size, nullptr);
        if (result != noErr) break;
        auto fork = reinterpret_cast<ForkTrackerRec*>(NewPtr(sizeof(ForkTrackerRec)));
        if (!fork) return MemError();
        *fork = {name, static_cast<uint64_t>(size), 0};
        result = AddToTail(forkList, fork);
        if (result == noErr)
            result = OpenTrackedFork(dest, fork);
        else
            DisposePtr(reinterpret_cast<Ptr>(fork));
    }
    return result == errFSNoMoreItems ? noErr : result;
}

// Copies into a fork that is open already.
static OSErr CopyTrackedFork(const FSRef* source, CopyParams* params, const ForkTrackerRec& fork) {
    FSForkRefNum sourceRefNum;
    OSErr result = FSOpenFork(source, fork.forkName.length, fork.forkName.unicode, fsRdPerm, &sourceRefNum);
    if (result != noErr) return result;
    result = WriteFork(sourceRefNum, fork.forkDestRefNum, params, fork.forkSize);
    FSCloseFork(sourceRefNum);
    return result;
}

OSErr CopyForksToDropBox(const FSRef* source, const FSRef* dest, CopyParams* params) {
    GenLinkedList forkList;
    InitLinkedList(&forkList, MyCloseForkProc);
    // kept: the list is made from the destination's forks, so what a drop box receives is what it has forks
    // for.
    OSErr result = OpenAllForks(dest, &forkList);
    ListPosition position;
    for (InitIterator(&forkList, &position); result == noErr && position; Next(&position))
        result = CopyTrackedFork(source, params, *static_cast<ForkTrackerRec*>(GetData(position)));
    DestroyList(&forkList);
    return result;
}
