// The process-wide table that finds a public object's private companion. Keys are addresses,
// never kept alive by the table; values are owned while stored. Main thread only.
#pragma once

#include <QObject>

#include <memory>

class PXBPrivateUtilities {
  public:
    // Stores `object` under `key`, replacing (and releasing) any previous value.
    static void setPrivateObject(std::shared_ptr<QObject> object, const void* key);
    // The value stored under `key`, or null.
    static QObject* privateObjectForKey(const void* key);
    template <class T>
    static T* privateObjectForKey(const void* key) {
        return dynamic_cast<T*>(privateObjectForKey(key));
    }
    // Removes (and releases) the value under `key`; nothing happens if there is none.
    static void removePrivateObjectForKey(const void* key);

    static int count();
};
