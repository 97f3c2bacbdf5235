#include "ads/core/PXBPrivateUtilities.h"

#include <unordered_map>
#include <utility>

namespace {
// Never destroyed. Its values' destructors use the table, so clearing it from a static
// destructor corrupts it; and when the process ends through exit() (the web engine does so when
// it cannot start) the objects still in it must not be torn down after Qt is gone.
std::unordered_map<const void*, std::shared_ptr<QObject>>& table() {
    static auto* objects = new std::unordered_map<const void*, std::shared_ptr<QObject>>();
    return *objects;
}
}  // namespace

void PXBPrivateUtilities::setPrivateObject(std::shared_ptr<QObject> object, const void* key) {
    if (!object) {
        removePrivateObjectForKey(key);
        return;
    }
    // The old value is released only after the table is consistent again, since its
    // destructor may itself use the table.
    std::shared_ptr<QObject> old = std::exchange(table()[key], std::move(object));
    old.reset();
}

QObject* PXBPrivateUtilities::privateObjectForKey(const void* key) {
    const auto it = table().find(key);
    return it == table().end() ? nullptr : it->second.get();
}

void PXBPrivateUtilities::removePrivateObjectForKey(const void* key) {
    const auto it = table().find(key);
    if (it == table().end()) {
        return;
    }
    std::shared_ptr<QObject> old = std::move(it->second);
    table().erase(it);
    old.reset();
}

int PXBPrivateUtilities::count() {
    return static_cast<int>(table().size());
}
