// What a copy needs to know about volumes and folders before it starts.
#pragma once

#include "platform/types.h"
#include "platform/volumes.h"

OSErr FSGetVRefNum(const FSRef* ref, FSVolumeRefNum* volume);

// The volume's standing facts; `sizeFilled` tells how many bytes of `parms` are valid.
OSErr FSGetVolParms(FSVolumeRefNum volume, ByteCount bufferSize, GetVolParmsInfoBuffer* parms,
                    ByteCount* sizeFilled);

// The copy buffer's size in bytes: about a quarter of a second at the volume's rated speed.
ByteCount CalcBufferSizeForVol(const GetVolParmsInfoBuffer* parms, ByteCount sizeFilled);
ByteCount BufferSizeForVolSpeed(uint32_t bytesPerSecond);

// Whether this user may put things into the folder but not see what is in it. -1407 when it is not a folder.
OSErr IsDropBox(const FSRef* folder, Boolean* isDropBox);
