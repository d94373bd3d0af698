// Names: UTF-8 bytes of the host to and from 16-bit units, with a place for bytes that are not UTF-8.
// The host allows any bytes but "/" and zero, the platform any units but ":"; lone low surrogates carry the
// bytes that UTF-8 has no meaning for. Units whose bytes would read back as other units are refused, so that
// no two names of the platform mean the same name of the host. Sections: one sequence each way, text, names.
#include "platform/linux/names.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr UniChar kEscapeBase = 0xDC00; // a stray byte b is the unit kEscapeBase + b

bool IsHighSurrogate(UniChar unit) {
    return (unit & 0xFC00) == 0xD800;
}
bool IsLowSurrogate(UniChar unit) {
    return (unit & 0xFC00) == 0xDC00;
}
bool IsEscapedByte(UniChar unit) {
    return unit >= kEscapeBase + 0x80 && unit <= kEscapeBase + 0xFF;
}

struct Sequence {
    uint32_t codePoint;
    unsigned bytes; // 0: not UTF-8
};

unsigned SequenceLength(unsigned char lead) {
    if (lead < 0x80) return 1;
    if (lead >= 0xC2 && lead <= 0xDF) return 2;
    if (lead >= 0xE0 && lead <= 0xEF) return 3;
    if (lead >= 0xF0 && lead <= 0xF4) return 4;
    return 0;
}

// Decodes the well-formed sequence at the start of `bytes`.
Sequence DecodeSequence(const unsigned char* bytes, size_t length) {
    unsigned count = SequenceLength(bytes[0]);
    if (count == 0 || count > length) return {0, 0};
    if (count == 1) return {bytes[0], 1};
    uint32_t codePoint = bytes[0] & (0x7Fu >> count);
    for (unsigned i = 1; i < count; ++i) {
        if ((bytes[i] & 0xC0) != 0x80) return {0, 0};
        codePoint = codePoint << 6 | (bytes[i] & 0x3Fu);
    }
    bool overlong = (count == 3 && codePoint < 0x800) || (count == 4 && codePoint < 0x10000);
    bool surrogate = codePoint >= 0xD800 && codePoint <= 0xDFFF;
    if (overlong || surrogate || codePoint > 0x10FFFF) return {0, 0};
    return {codePoint, count};
}

unsigned EncodeSequence(uint32_t codePoint, unsigned char (&bytes)[4]) {
    auto tail = [&](unsigned shift) {
        return static_cast<unsigned char>(0x80 | (codePoint >> shift & 0x3F));
    };
    if (codePoint < 0x80) {
        bytes[0] = static_cast<unsigned char>(codePoint);
        return 1;
    }
    if (codePoint < 0x800) {
        bytes[0] = static_cast<unsigned char>(0xC0 | codePoint >> 6);
        bytes[1] = tail(0);
        return 2;
    }
    if (codePoint < 0x10000) {
        bytes[0] = static_cast<unsigned char>(0xE0 | codePoint >> 12);
        bytes[1] = tail(6);
        bytes[2] = tail(0);
        return 3;
    }
    bytes[0] = static_cast<unsigned char>(0xF0 | codePoint >> 18);
    bytes[1] = tail(12);
    bytes[2] = tail(6);
    bytes[3] = tail(0);
    return 4;
}

// Whether escaped bytes from here on, taken back to bytes, would read as UTF-8 instead.
bool EscapesReadAsText(const UniChar* units, size_t available) {
    unsigned char bytes[4];
    size_t count = 0;
    for (; count < std::min(available, sizeof bytes) && IsEscapedByte(units[count]); ++count)
        bytes[count] = static_cast<unsigned char>(units[count] - kEscapeBase);
    return DecodeSequence(bytes, count).bytes != 0;
}

} // namespace

size_t BytesFromUnits(const UniChar* units, size_t length, char* bytes, size_t capacity) {
    size_t written = 0;
    for (size_t i = 0; i < length;) {
        unsigned char sequence[4];
        unsigned count = 1;
        UniChar unit = units[i];
        if (unit < 0x80) {
            sequence[0] = static_cast<unsigned char>(unit);
            i += 1;
        } else if (IsHighSurrogate(unit) && i + 1 < length && IsLowSurrogate(units[i + 1])) {
            count = EncodeSequence(0x10000u + ((unit & 0x3FFu) << 10) + (units[i + 1] & 0x3FFu), sequence);
            i += 2;
        } else if (IsEscapedByte(unit)) {
            if (EscapesReadAsText(units + i, length - i)) return kNotText;
            sequence[0] = static_cast<unsigned char>(unit - kEscapeBase);
            i += 1;
        } else if (IsHighSurrogate(unit) || IsLowSurrogate(unit)) {
            return kNotText;
        } else {
            count = EncodeSequence(unit, sequence);
            i += 1;
        }
        for (unsigned k = 0; k < count; ++k, ++written)
            if (written < capacity) bytes[written] = static_cast<char>(sequence[k]);
    }
    return written;
}

size_t UnitsFromBytes(const char* bytes, size_t length, UniChar* units, size_t capacity) {
    auto source = reinterpret_cast<const unsigned char*>(bytes);
    size_t written = 0;
    auto put = [&](uint32_t unit) {
        if (written < capacity) units[written] = static_cast<UniChar>(unit);
        ++written;
    };
    for (size_t i = 0; i < length;) {
        if (source[i] < 0x80) {
            put(source[i++]);
            continue;
        }
        Sequence sequence = DecodeSequence(source + i, length - i);
        if (sequence.bytes == 0) {
            put(kEscapeBase + source[i]);
            i += 1;
            continue;
        }
        if (sequence.codePoint < 0x10000) {
            put(sequence.codePoint);
        } else {
            put(0xD7C0 + (sequence.codePoint >> 10));
            put(0xDC00 + (sequence.codePoint & 0x3FF));
        }
        i += sequence.bytes;
    }
    return written;
}

OSErr BytesFromName(const UniChar* units, UniCharCount length, char (&bytes)[kMaxNameBytes + 1]) {
    if (length == 0 || length > 255 || !units) return bdNamErr;
    for (UniCharCount i = 0; i < length; ++i)
        if (units[i] == ':' || units[i] == 0) return bdNamErr;
    size_t count = BytesFromUnits(units, length, bytes, kMaxNameBytes);
    if (count > kMaxNameBytes) return bdNamErr; // kNotText, too
    bytes[count] = 0;
    if (std::strcmp(bytes, ".") == 0 || std::strcmp(bytes, "..") == 0) return bdNamErr;
    std::replace(bytes, bytes + count, '/', ':');
    return noErr;
}

void NameFromBytes(const char* bytes, HFSUniStr255& name) {
    size_t length = strnlen(bytes, kMaxNameBytes);
    name.length = static_cast<uint16_t>(UnitsFromBytes(bytes, length, name.unicode, 255));
    std::replace(name.unicode, name.unicode + name.length, UniChar(':'), UniChar('/'));
}
