#include "vpath/translation_keys.h"

#include "vpath/globals.h"

#include <cstdlib>
#include <cstring>

int32_t KeyNumber(const TavKey* key) {
    uint8_t bytes[sizeof(TavKey)];
    std::memcpy(bytes, key, sizeof bytes);
    uint32_t number = 0;
    for (const uint8_t byte : bytes) number = number << 8 | byte;
    return static_cast<int32_t>(number);
}

TavKey KeyInMemory(int32_t number) {
    uint8_t bytes[sizeof(TavKey)];
    for (uint8_t& byte : bytes) {
        byte = static_cast<uint8_t>(static_cast<uint32_t>(number) >> 24);
        number = static_cast<int32_t>(static_cast<uint32_t>(number) << 8);
    }
    TavKey key;
    std::memcpy(&key, bytes, sizeof key);
    return key;
}

FSRef* Tav0TranPathRegister(const TavKey* key, const FSRef* ref) {
    if (!key) return nullptr;
    const int32_t number = KeyNumber(key);
    if (!ref) return g_map_KeyPath.Find(number);

    auto* copy = static_cast<FSRef*>(std::malloc(sizeof(FSRef)));
    if (!copy) return nullptr;
    map_KeyPath::Node node = map_KeyPath::MakeNode(number, copy);
    if (!node) {
        std::free(copy);
        return nullptr;
    }
    *copy = *ref;
    g_map_KeyPath.Store(std::move(node));
    return copy;
}

FSRef* Tav0TranPathGet(const TavKey* key) {
    return Tav0TranPathRegister(key, nullptr);
}
