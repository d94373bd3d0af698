// What a forwarding function does with a call. Only the made forwarders and faults.cpp include this.
#pragma once

#include "platform/forks.h"
#include "platform/io_registry.h"
#include "support/watching.h"

#include <string_view>
#include <type_traits>

namespace faults {

enum class Kind { kNone, kFork, kIterator, kString, kBlock, kRegistry, kWaitable, kCount };

// One operation of the seam, with what its name tells: which kind of object it opens or closes.
struct Operation {
    consteval Operation(const char* operationName, bool mayFail)
        : name(operationName), fallible(mayFail), opens(Opened(operationName)),
          closes(Closed(operationName)) {}

    const char* name;
    bool fallible;
    Kind opens;
    Kind closes;

private:
    static constexpr bool Has(std::string_view name, std::string_view part) {
        return name.find(part) != std::string_view::npos;
    }
    static constexpr Kind Opened(std::string_view name) {
        if (name == "FSOpenFork") return Kind::kFork;
        if (name == "FSOpenIterator") return Kind::kIterator;
        if (name == "NewPtr") return Kind::kBlock;
        if (name == "CFRetain" || name == "IORegistryEntryCreateCFProperty") return Kind::kString;
        if (name.starts_with("CF") && (Has(name, "Create") || Has(name, "Copy"))) return Kind::kString;
        if (name == "IOMasterPort" || name == "IOServiceGetMatchingServices" || name == "IOIteratorNext" ||
            name == "IORegistryEntryCreateIterator" || name == "IOObjectRetain")
            return Kind::kRegistry;
        if (name.starts_with("MPCreate") && name != "MPCreateTask") return Kind::kWaitable;
        return Kind::kNone;
    }
    static constexpr Kind Closed(std::string_view name) {
        if (name == "FSCloseFork") return Kind::kFork;
        if (name == "FSCloseIterator") return Kind::kIterator;
        if (name == "DisposePtr") return Kind::kBlock;
        if (name == "CFRelease") return Kind::kString;
        if (name == "IOObjectRelease" || name == "mach_port_deallocate") return Kind::kRegistry;
        if (name.starts_with("MPDelete")) return Kind::kWaitable;
        return Kind::kNone;
    }
};

struct Verdict {
    bool isInner = false; // part of an operation that has been entered already
    bool fail = false;
    bool partial = false;
    int code = 0;
};

// Counts a call and decides its fate. Calls inside an operation are let through.
Verdict Enter(const Operation& operation);
void Leave();

// What MemError is to say after a NewPtr of this thread that was failed here (`failed`) or went through.
void SetMemoryError(bool failed);
OSErr MemoryError(OSErr real);

void Count(Kind kind, long change);

template <typename Result>
Result Failure(int code) {
    if constexpr (std::is_pointer_v<Result>)
        return nullptr;
    else if constexpr (std::is_signed_v<Result>)
        return static_cast<Result>(code);
    else
        return Result{};
}

template <typename Result>
bool Succeeded(Result result) {
    if constexpr (std::is_signed_v<Result>)
        return result == 0;
    else if constexpr (std::is_class_v<Result>)
        return true; // a record opens nothing
    else
        return result != Result{};
}

// The half-done work that a failing call leaves behind.
template <typename Result, typename... Arguments>
void HalfDo(Result (*)(Arguments...), Arguments...) {}

template <typename Buffer>
void HalfDo(OSErr (*move)(FSForkRefNum, uint16_t, int64_t, ByteCount, Buffer*, ByteCount*), FSForkRefNum fork,
            uint16_t mode, int64_t offset, ByteCount count, Buffer* buffer, ByteCount* actual) {
    move(fork, mode, offset, count / 2, buffer, actual);
}

// What a call takes over from its caller even when it fails.
template <typename Result, typename... Arguments>
void TakeOver(Result (*)(Arguments...), Arguments...) {}

inline void TakeOver(kern_return_t (*)(mach_port_t, CFDictionaryRef, io_iterator_t*), mach_port_t,
                     CFDictionaryRef matching, io_iterator_t*) {
    CFRelease(matching);
}

template <typename First, typename... Rest>
bool Given(First first, Rest...) {
    return first != First{};
}
inline bool Given() {
    return true;
}

template <typename Result, typename... Arguments>
Result Forward(const Operation& operation, Result (*real)(Arguments...),
               std::type_identity_t<Arguments>... arguments) {
    struct Guard {
        ~Guard() { Leave(); }
    };
    Verdict verdict = Enter(operation);
    Guard guard;
    if (!verdict.isInner) Watch<Result(Arguments...)>::Show(operation.name, arguments...);
    if constexpr (std::is_void_v<Result>) {
        if (operation.closes != Kind::kNone && Given(arguments...)) Count(operation.closes, -1);
        real(arguments...);
    } else {
        if (operation.opens == Kind::kBlock) SetMemoryError(verdict.fail);
        if (verdict.fail && operation.closes == Kind::kNone) {
            if (verdict.partial) HalfDo(real, arguments...);
            TakeOver(real, arguments...);
            return Failure<Result>(verdict.code);
        }
        Result result = real(arguments...);
        if (operation.opens != Kind::kNone && Succeeded(result)) Count(operation.opens, 1);
        if (operation.closes != Kind::kNone && Succeeded(result)) Count(operation.closes, -1);
        if constexpr (std::is_same_v<Result, OSErr> && sizeof...(Arguments) == 0)
            if (operation.name == std::string_view("MemError")) return MemoryError(result);
        return verdict.fail ? Failure<Result>(verdict.code) : result;
    }
}

} // namespace faults
