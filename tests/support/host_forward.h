// What a forwarding function does with a call of the system's functions. Only the made forwarders and
// failing_host.cpp include this.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

namespace host_faults {

// One function of the list, with the ways in which it may fail.
struct Entry {
    enum class Way { kErrno, kCode, kNegative };

    const char* name;
    const int* errors; // without EINTR, 0 at the end
    bool mayBeInterrupted;
    unsigned sizeAt; // the argument that a short count halves, from 1; 0: none
    bool doesItsWork;
    Way way;
};

// The entry of a raw system call; null when it is not in the list.
const Entry* EntryOf(long number);

struct Verdict {
    int error = 0; // 0: the call goes through
    bool isShort = false;
};

// Counts a call and decides its fate; leaves errno alone.
Verdict Decide(const Entry& entry);

void SetErrorNumber(int error);

// Gives a failure as the function reports it.
template <typename Result>
Result Fail(const Entry& entry, int error) {
    if constexpr (std::is_pointer_v<Result>) {
        SetErrorNumber(error);
        return nullptr;
    } else {
        if (entry.way == Entry::Way::kErrno) SetErrorNumber(error);
        if (std::is_unsigned_v<Result>) return 0;
        return static_cast<Result>(entry.way == Entry::Way::kErrno  ? -1
                                   : entry.way == Entry::Way::kCode ? error
                                                                    : -error);
    }
}

// Half of a size, rounded up.
template <typename Argument>
Argument Half(Argument value) {
    if constexpr (std::is_integral_v<Argument>)
        return static_cast<Argument>(value / 2 + value % 2);
    else
        return value;
}

template <size_t... Index, typename Result, typename... Arguments>
Result CallShort(std::index_sequence<Index...>, unsigned sizeAt, Result (*real)(Arguments...),
                 Arguments... arguments) {
    return real((Index + 1 == sizeAt ? Half(arguments) : arguments)...);
}

template <typename Result, typename... Arguments>
Result Forward(const Entry& entry, Result (*real)(Arguments...),
               std::type_identity_t<Arguments>... arguments) {
    const Verdict verdict = Decide(entry);
    if (verdict.isShort)
        return CallShort(std::index_sequence_for<Arguments...>(), entry.sizeAt, real, arguments...);
    if (verdict.error == 0) return real(arguments...);
    if (entry.doesItsWork) (void)real(arguments...);
    return Fail<Result>(entry, verdict.error);
}

} // namespace host_faults
