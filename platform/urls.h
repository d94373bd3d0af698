// The URL service: where the last component, the parent and the extension of a path are.
//
// The URLs are those of plain paths, whatever text the paths hold: ":" and "%" mean nothing. A path counts
// without its trailing "/", except for the root itself; "/" inside the path are kept as they are.
#pragma once

#include "platform/strings.h"

using CFURLRef = const struct OpaqueCFURL*;
using CFURLPathStyle = int32_t;

constexpr CFURLPathStyle kCFURLPOSIXPathStyle = 0;

extern "C" {

// Every function gives null when memory runs out. The caller releases the result with CFRelease. The
// allocator is always null and the style always that of POSIX paths; nothing is looked up on disk.

// Null for an empty path. Text behind a zero unit is cut off. Relative paths stay relative.
CFURLRef CFURLCreateWithFileSystemPath(CFAllocatorRef allocator, CFStringRef filePath,
                                       CFURLPathStyle pathStyle, Boolean isDirectory);

// The path of the URL, without trailing "/".
CFStringRef CFURLCopyFileSystemPath(CFURLRef url, CFURLPathStyle pathStyle);

// The parent: "." for a bare name, "/" for what lies in the root. Where the last component is "..", or the
// path is the root, another ".." is added; a last "." becomes "..".
CFURLRef CFURLCreateCopyDeletingLastPathComponent(CFAllocatorRef allocator, CFURLRef url);

// The path without the text behind the last "." of the last component and that "."; the same path when there
// is no such text or only "." stand before it.
CFURLRef CFURLCreateCopyDeletingPathExtension(CFAllocatorRef allocator, CFURLRef url);

// That text. Null when there is none, and, unlike above, when it holds a space or a mark that turns the
// direction of writing.
CFStringRef CFURLCopyPathExtension(CFURLRef url);

// The path with one more component, or several, behind a "/". Null when the component is empty.
CFURLRef CFURLCreateCopyAppendingPathComponent(CFAllocatorRef allocator, CFURLRef url,
                                               CFStringRef pathComponent, Boolean isDirectory);

// The last component; "/" for the root.
CFStringRef CFURLCopyLastPathComponent(CFURLRef url);

} // extern "C"
