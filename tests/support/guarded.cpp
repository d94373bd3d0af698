#include "support/guarded.h"

#include <stdexcept>
#include <sys/mman.h>
#include <unistd.h>

GuardedMemory::GuardedMemory(size_t size, At at) {
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const size_t inner = (size + page - 1) / page * page;
    mappingSize_ = inner + 2 * page;
    mapping_ = mmap(nullptr, mappingSize_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapping_ == MAP_FAILED) throw std::runtime_error("no guarded memory");
    char* first = static_cast<char*>(mapping_) + page;
    // An emulator refuses to open up nothing.
    if (inner != 0 && mprotect(first, inner, PROT_READ | PROT_WRITE) != 0)
        throw std::runtime_error("no guarded memory");
    data_ = at == At::Start ? first : first + inner - size;
}

GuardedMemory::~GuardedMemory() {
    munmap(mapping_, mappingSize_);
}
