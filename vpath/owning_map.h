// An ordered map whose values are blocks from malloc that it owns.
#pragma once

#include <cstdlib>
#include <functional>
#include <map>
#include <new>
#include <utility>

template <class Key, class Value, class Less = std::less<Key>>
class OwningMap : public std::map<Key, Value*, Less> {
public:
    using Base = std::map<Key, Value*, Less>;
    using Node = typename Base::node_type;

    OwningMap() = default;
    OwningMap(const OwningMap&) = delete;
    OwningMap& operator=(const OwningMap&) = delete;
    ~OwningMap() { FreeSecond(); }

    // Frees every value and empties the map.
    void FreeSecond() {
        for (auto& entry : *this) std::free(entry.second);
        this->clear();
    }

    // The value of `key`, or null.
    Value* Find(const Key& key) const {
        const auto found = this->find(key);
        return found == this->end() ? nullptr : found->second;
    }

    // An entry that Store will not have to allocate; empty when memory is short. It does not own `value` yet.
    static Node MakeNode(const Key& key, Value* value) {
        try {
            Base outside;
            return outside.extract(outside.emplace(key, value).first);
        } catch (const std::bad_alloc&) {
            return {};
        }
    }

    // Adds the entry, or lets its value replace that of the equal key.
    void Store(Node node) {
        const auto place = this->lower_bound(node.key());
        if (place == this->end() || this->key_comp()(node.key(), place->first)) {
            this->insert(place, std::move(node));
        } else {
            std::free(std::exchange(place->second, node.mapped()));
        }
    }
};
