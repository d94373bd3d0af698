// Code bundles: folders or files with code that is loaded at run time.
#pragma once

#include "platform/urls.h"

using CFBundleRef = struct OpaqueCFBundle*;

extern "C" {

// The bundle that the running program is in, or its folder where it is in none. Borrowed.
CFBundleRef CFBundleGetMainBundle();

// Where the bundle is; null when that cannot be told. The caller releases it.
CFURLRef CFBundleCopyBundleURL(CFBundleRef bundle);

// The bundle at `bundleURL`: a folder with an executable or a property list, a framework, or a shared object
// file. Null when there is none; whether its code can be loaded is not looked at. Each component is found in
// another letter case too. Two bundles of one place, links followed, are the same object; the last CFRelease
// unloads its code.
CFBundleRef CFBundleCreate(CFAllocatorRef allocator, CFURLRef bundleURL);

// Loads the bundle's code, once. 0 when it cannot be loaded; when an initialiser of it throws, that is so for
// as long as the library is loaded, and other threads that load code after that wait for ever.
Boolean CFBundleLoadExecutable(CFBundleRef bundle);

// The address of a function of this code, not of libraries that it depends on, loading it where that has not
// been done; null for a null bundle and where there is no such function.
void* CFBundleGetFunctionPointerForName(CFBundleRef bundle, CFStringRef functionName);

} // extern "C"
