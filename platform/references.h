// File references: making them from paths and names, turning them back into paths, comparing them.
//
// A reference is 80 bytes that may be copied and stored; nothing is released. It follows its object through
// renames and moves made through these operations, and never leads to another object than the one that it was
// made for.
#pragma once

#include "platform/types.h"

extern "C" {

// Makes a reference to the existing object at an absolute UTF-8 path. Links on the way are followed; a link
// in the last place gives a reference with the link's identity, but one that leads nowhere does not exist
// (-43). A component that does not exist as written is looked for without regard to case. `isDirectory` (may
// be null) is that of a link's target. `ref` may be null where only existence is asked, which is cheaper. On
// failure (-43 no such object or not an absolute path, -50 null path, -1407 a file in a folder's place …)
// `ref` keeps what it held.
OSStatus FSPathMakeRef(const uint8_t* path, FSRef* ref, Boolean* isDirectory);

// The same with options: with kFSPathMakeRefDoNotFollowLeafSymlink a link that leads nowhere gives its
// reference, too (and `isDirectory` is 0), so that it can be deleted, moved and renamed.
constexpr uint32_t kFSPathMakeRefDefaultOptions = 0;
constexpr uint32_t kFSPathMakeRefDoNotFollowLeafSymlink = 1;
OSStatus FSPathMakeRefWithOptions(const uint8_t* path, uint32_t options, FSRef* ref, Boolean* isDirectory);

// Writes the object's absolute UTF-8 path, terminator included, without a trailing "/" except for the root.
// Fails when it does not fit in `maxPathSize` bytes (-37) or the object is gone (-43); the buffer's content
// is then unspecified.
OSStatus FSRefMakePath(const FSRef* ref, uint8_t* path, uint32_t maxPathSize);

// Makes a reference to the existing object `name` (exact, `nameLength` units, ":" and "/" in the platform's
// sense) in the folder `parentRef`. -43 when there is none, -37 for a name of no or more than 255 units.
OSErr FSMakeFSRefUnicode(const FSRef* parentRef, UniCharCount nameLength, const UniChar* name,
                         TextEncoding encodingHint, FSRef* newRef);

// 0 when both stand for the same object, -1420 when not, -1303 when they lie on volumes of which neither is
// mounted inside the other; an error when one of them is gone.
OSErr FSCompareFSRefs(const FSRef* ref1, const FSRef* ref2);

} // extern "C"
