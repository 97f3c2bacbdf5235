/// \file
/// Non-owning references that cannot dangle, for delegates and back-references: an object that
/// derives from Referenceable clears every WeakRef to it when it is destroyed.
#pragma once

#include "platform/export.h"

#include <memory>

namespace platform {

/// The base of objects a WeakRef may point to: destroying one clears every WeakRef to it.
class SORVEL_EXPORT Referenceable {
  public:
    Referenceable() = default;  ///< An object with no references yet.
    /// A copy is a new object with references of its own.
    Referenceable(const Referenceable&) : token_(std::make_shared<char>()) {}
    /// Assignment keeps this object's references: they still point at it.
    Referenceable& operator=(const Referenceable&) { return *this; }
    virtual ~Referenceable() = default;  ///< Every WeakRef to this object gives null from now on.

    /// Expires when this object is destroyed; a WeakRef watches it.
    std::weak_ptr<void> lifetimeToken() const { return token_; }

  private:
    std::shared_ptr<char> token_ = std::make_shared<char>();
};

/// Holds a T* and knows whether its object still exists. T must derive from Referenceable.
template <class T>
class WeakRef {
  public:
    WeakRef() = default;  ///< A null reference.
    /// A reference to `object`, which may be null.
    WeakRef(T* object) { reset(object); }  // NOLINT: implicit, like a raw pointer

    /// Points the reference at `object`, or at nothing.
    void reset(T* object = nullptr) {
        ptr_ = object;
        token_ = object != nullptr ? static_cast<const Referenceable*>(object)->lifetimeToken()
                                   : std::weak_ptr<void>();
    }
    /// The object, or null once it has been destroyed.
    T* get() const { return token_.expired() ? nullptr : ptr_; }
    T* operator->() const { return get(); }                      ///< The object, as get() gives it.
    explicit operator bool() const { return get() != nullptr; }  ///< Whether the object exists.
    /// Whether get() is `other`.
    bool operator==(const T* other) const { return get() == other; }

  private:
    T* ptr_ = nullptr;
    std::weak_ptr<void> token_;
};

}  // namespace platform
