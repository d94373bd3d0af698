// Buffers that end, or begin, at a page that may not be touched, so that a read too far is a crash.
#pragma once

#include <cstddef>
#include <cstring>
#include <string>

// Memory of `size` bytes between two forbidden pages. It touches the one behind it, or the one in front of
// it.
class GuardedMemory {
public:
    enum class At { End, Start };
    GuardedMemory(size_t size, At at);
    ~GuardedMemory();
    GuardedMemory(const GuardedMemory&) = delete;
    GuardedMemory& operator=(const GuardedMemory&) = delete;

    void* data() const { return data_; }

private:
    void* mapping_;
    size_t mappingSize_;
    void* data_;
};

// A terminated copy of a text in such memory.
template <typename Unit>
class GuardedText {
public:
    explicit GuardedText(const std::basic_string<Unit>& text, GuardedMemory::At at = GuardedMemory::At::End)
        : memory_((text.size() + 1) * sizeof(Unit), at) {
        memcpy(memory_.data(), text.c_str(), (text.size() + 1) * sizeof(Unit));
    }

    Unit* get() const { return static_cast<Unit*>(memory_.data()); }

private:
    GuardedMemory memory_;
};
