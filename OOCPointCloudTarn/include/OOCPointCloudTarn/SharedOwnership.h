// Lets several owners refer to the same objects by plain pointers and deletes each object once.
#pragma once

#include <map>
#include <memory>

/// What one owner keeps alive. A copy keeps the same objects alive; an object is deleted when the
/// last owner has let go of it or is gone.
///
/// Objects are told apart by their address, whatever base class they are named by; they are deleted
/// through the type under which they were handed in, so its destructor must be virtual. Thread
/// safety: one thread at a time per owner; different owners, also of the same objects, are
/// independent.
class SharedOwnership {
 public:
  /// Keeps one object alive while it exists.
  using Guard = std::shared_ptr<void>;

  SharedOwnership() = default;
  SharedOwnership(const SharedOwnership&) = default;
  SharedOwnership& operator=(const SharedOwnership&) = delete;
  ~SharedOwnership() = default;

  /// Keeps what `other` keeps, and goes on keeping what was kept before: whoever was handed a
  /// pointer by this owner can use it until the owner is gone.
  void ShareWith(const SharedOwnership& other) {
    guards_.insert(other.guards_.begin(), other.guards_.end());
  }

  /// The guard of an object that is already kept; otherwise a new one, which takes the object over.
  template <typename Object>
  [[nodiscard]] Guard GuardOf(Object* object) const {
    const auto known = guards_.find(AddressOf(object));
    return known != guards_.end() ? known->second : Guard(std::shared_ptr<Object>(object));
  }

  /// Takes an object over; does nothing for null or for an object that is already kept.
  template <typename Object>
  void Own(Object* object) {
    Own(object, GuardOf(object));
  }
  template <typename Object>
  void Own(Object* object, Guard guard) {
    if (object != nullptr) guards_.try_emplace(AddressOf(object), std::move(guard));
  }

  /// Lets go of an object: it is deleted unless another owner keeps it. Nothing for null.
  template <typename Object>
  void Release(Object* object) {
    if (object != nullptr) guards_.erase(AddressOf(object));
  }

  template <typename Object>
  [[nodiscard]] bool Owns(const Object* object) const {
    return object != nullptr && guards_.contains(AddressOf(object));
  }

 private:
  // The address of the whole object, which all its base classes share.
  template <typename Object>
  [[nodiscard]] static const void* AddressOf(const Object* object) {
    return dynamic_cast<const void*>(object);
  }

  std::map<const void*, Guard> guards_;
};
