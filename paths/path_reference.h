// From a wide path to the platform's reference.
#pragma once

#include "platform/references.h"

// Makes a reference to the object at a zero-terminated path; `ref` may be null where only existence is asked,
// and `isDirectory` where it does not matter. -37 when the path's UTF-8 form does not fit in the work buffer, -108 when memory runs out, else what
// FSPathMakeRef says.
OSStatus MakePathRef(const TavChar* path, FSRef* ref, Boolean* isDirectory = nullptr);
