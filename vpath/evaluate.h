// Evaluating path expressions: the steps that read an expression from `*p` to `end` and write a path at `*w`.
#pragma once

#include "TavPort.h"

// The buffer that the copy steps write to, from `start` on. They stop where the terminator would no longer
// fit and leave `*w` at start + kEvaluationUnits then.
constexpr uint32_t kEvaluationUnits = 2048;

extern "C" {

// The key after a "$" as a number, 0 when there is no "$". Reads up to four units, stopping at "\" or a zero
// unit, and leaves `*p` on the first one not taken.
int32_t ParseKey(const TavChar** p);

// 0 with `*p` behind the next "\", 1 when there is none before `end` or a zero unit.
int32_t NextSegment(const TavChar** p, const TavChar* end);

// Copies a plain segment, a "/" in front; 0 when there is none at `*p`.
int32_t TryCopyAsNormalSeg(const TavChar** p, const TavChar* end, TavChar** w, const TavChar* start);

// Copies the value that a "%" segment names, a "/" in front; 0 when it is no such segment or the value is
// unknown.
int32_t TryCopyAsVariable(const TavChar** p, const TavChar* end, TavChar** w, const TavChar* start);

} // extern "C"

// Copies `s` and its terminator to `w` and leaves `w` on the terminator.
void _CopyPath(TavChar*& w, const TavChar* s);
