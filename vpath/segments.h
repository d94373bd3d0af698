// Length and three-way comparison of texts, as path expressions and the reference cache need them.
#pragma once

#include "TavPort.h"

extern "C" {

// Units before the terminator; 0 for null.
uint32_t SegLen(const TavChar* s);

// -1, 0 or 1 by unsigned units. kept: null sorts after every text, although SegLen counts it as empty.
int32_t SegCmp(const TavChar* a, const TavChar* b);

} // extern "C"
