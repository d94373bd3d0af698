// Code bundles: folders or files with code that is loaded at run time.
#pragma once

#include "platform/urls.h"

using CFBundleRef = struct OpaqueCFBundle*;

extern "C" {

// The bundle that the running program is in, or its folder where it is in none. Borrowed; null when it cannot
// be told.
CFBundleRef CFBundleGetMainBundle();

// Where the bundle is. The caller releases it.
CFURLRef CFBundleCopyBundleURL(CFBundleRef bundle);

// The code bundle at `bundleURL`: a folder with an executable, a framework, or a shared object file. Null
// when there is none; whether its code can be loaded is not looked at. Each component is found in another
// letter case too. Two bundles of one place are the same object; the last CFRelease unloads its code.
CFBundleRef CFBundleCreate(CFAllocatorRef allocator, CFURLRef bundleURL);

// Loads the bundle's code, once. 0 when it cannot be loaded.
Boolean CFBundleLoadExecutable(CFBundleRef bundle);

// The address of a function, loading the code where that has not been done; null for a null bundle and where
// there is no such function.
void* CFBundleGetFunctionPointerForName(CFBundleRef bundle, CFStringRef functionName);

} // extern "C"
