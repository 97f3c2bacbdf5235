// Non-owning references that cannot dangle, for delegates and back-references: an object that
// derives from Referenceable clears every WeakRef to it when it is destroyed.
#pragma once

#include "platform/export.h"

#include <memory>

namespace platform {

class SORVEL_EXPORT Referenceable {
  public:
    Referenceable() = default;
    // A copy is a new object with references of its own.
    Referenceable(const Referenceable&) : token_(std::make_shared<char>()) {}
    Referenceable& operator=(const Referenceable&) { return *this; }
    virtual ~Referenceable() = default;

    std::weak_ptr<void> lifetimeToken() const { return token_; }

  private:
    std::shared_ptr<char> token_ = std::make_shared<char>();
};

// Holds a T* and knows whether its object still exists. T must derive from Referenceable.
template <class T>
class WeakRef {
  public:
    WeakRef() = default;
    WeakRef(T* object) { reset(object); }  // NOLINT: implicit, like a raw pointer

    void reset(T* object = nullptr) {
        ptr_ = object;
        token_ = object != nullptr ? static_cast<const Referenceable*>(object)->lifetimeToken()
                                   : std::weak_ptr<void>();
    }
    T* get() const { return token_.expired() ? nullptr : ptr_; }
    T* operator->() const { return get(); }
    explicit operator bool() const { return get() != nullptr; }
    bool operator==(const T* other) const { return get() == other; }

  private:
    T* ptr_ = nullptr;
    std::weak_ptr<void> token_;
};

}  // namespace platform
