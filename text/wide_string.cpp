#include "text/wide_string.h"

#include "platform/references.h"
#include "text/inline_helpers.h"

#include <cstring>
#include <limits>
#include <new>

namespace {

// Byte size of the work buffer for a UTF-8 path.
constexpr int32_t kPathBytes = 1024;

} // namespace

const int32_t rgTavInitDataW[4] = {-1, 0, 0, 0};
const int32_t rgTavInitDataA[4] = {-1, 0, 0, 0};
const int32_t* const _tavtmpDataNilW = rgTavInitDataW;
const int32_t* const _tavtmpDataNilA = rgTavInitDataA;
const TavChar* const _tavtmpPchNilW = reinterpret_cast<const TavChar*>(rgTavInitDataW + 3);
const char* const _tavtmpPchNilA = reinterpret_cast<const char*>(rgTavInitDataA + 3);

CTavStringW::CTavStringW(const TavChar* s) {
    Init();
    const int32_t n = SafeStrlen(s);
    if (n > 0 && AllocBuffer(n)) memcpy(characters_, s, static_cast<size_t>(n) * sizeof(TavChar));
}

CTavStringW::~CTavStringW() {
    CTavStringWData* header = GetData();
    if (&header->references == _tavtmpDataNilW) return;
    if (InterlockedDecrement(&header->references) <= 0) delete[] reinterpret_cast<char*>(header);
}

int32_t CTavStringW::ReverseFind(TavChar ch) const {
    const TavChar* hit = _cstrrchr(characters_, ch);
    return hit ? static_cast<int32_t>(hit - characters_) : -1;
}

int32_t CTavStringW::GetUTF8String(char* buffer, int32_t size) const {
    if (!characters_) return 0;
    CFStringRef text =
        CFStringCreateWithCharacters(nullptr, characters_, static_cast<CFIndex>(tav_wcslen(characters_)));
    if (!text) return 0;
    // kept: whether the text fitted is not looked at; callers find out by the empty or cut path.
    CFStringGetCString(text, buffer, size, kCFStringEncodingUTF8);
    const CFIndex length = CFStringGetLength(text);
    CFRelease(text);
    return static_cast<int32_t>(length);
}

bool CTavStringW::MakeFSRef(FSRef* ref) const {
    char path[kPathBytes] = {};
    if (GetUTF8String(path, kPathBytes) <= 0) return false;
    return FSPathMakeRef(reinterpret_cast<const uint8_t*>(path), ref, nullptr) == noErr;
}

CTavStringWData* CTavStringW::GetData() const {
    return reinterpret_cast<CTavStringWData*>(characters_) - 1;
}

void CTavStringW::Init() {
    characters_ = const_cast<TavChar*>(*_GetEmptyString());
}

int32_t CTavStringW::SafeStrlen(const TavChar* s) {
    return s ? static_cast<int32_t>(lstrlenW(s)) : 0;
}

bool CTavStringW::AllocBuffer(int32_t n) {
    if (n == 0) {
        Init();
        return true;
    }
    const uint64_t size =
        sizeof(CTavStringWData) + (uint64_t{static_cast<uint32_t>(n)} + 1) * sizeof(TavChar);
    if (size > std::numeric_limits<ptrdiff_t>::max()) return false;
    void* block = new (std::nothrow) char[static_cast<size_t>(size)];
    if (!block) return false;
    auto* header = new (block) CTavStringWData{1, n, n};
    characters_ = header->data();
    characters_[n] = 0;
    return true;
}

const TavChar* CTavStringW::_cstrrchr(const TavChar* s, TavChar ch) {
    const TavChar* last = nullptr;
    for (; *s; s = CharNextW(s)) {
        if (*s == ch) last = s;
    }
    return last;
}

const TavChar* const* CTavStringW::_GetEmptyString() {
    return &_tavtmpPchNilW;
}
