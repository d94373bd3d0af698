// A string of units in one heap block behind a header with a reference count; empty strings share one
// constant block.
#pragma once

#include "platform/types.h"

// In front of the characters, which are always terminated at `length`.
struct CTavStringWData {
    int32_t references; // -1 in the shared empty block, which is never counted or freed
    int32_t length;
    int32_t allocatedLength;

    TavChar* data() { return reinterpret_cast<TavChar*>(this + 1); }
};

static_assert(sizeof(CTavStringWData) == 12);

class CTavStringW {
public:
    // Copies `s`; null, and memory that cannot be had, make an empty string.
    explicit CTavStringW(const TavChar* s);
    ~CTavStringW();
    CTavStringW(const CTavStringW&) = delete;
    CTavStringW& operator=(const CTavStringW&) = delete;

    // Index of the last unit equal to `ch`, -1 if none. The terminator takes no part.
    int32_t ReverseFind(TavChar ch) const;

    // Writes at most `size` bytes of terminated UTF-8 and gives the length in units, whether or not the text
    // fitted; 0 when no platform string could be made.
    int32_t GetUTF8String(char* buffer, int32_t size) const;

    // Makes a reference to the object at this absolute path; false on every failure.
    bool MakeFSRef(FSRef* ref) const;

    CTavStringWData* GetData() const;

    // Makes this the empty string, without releasing what it held.
    void Init();

    // Units before the terminator; 0 for null.
    static int32_t SafeStrlen(const TavChar* s);

    // Gives this a block of its own for `n` units, not filled in; false, and no change, when there is no
    // memory.
    bool AllocBuffer(int32_t n);

    // Last address before the terminator that holds `ch`; null if none.
    static const TavChar* _cstrrchr(const TavChar* s, TavChar ch);

    // The address of the pointer to the empty string's characters.
    static const TavChar* const* _GetEmptyString();

private:
    TavChar* characters_;
};
