#pragma once

#include <glib-object.h>

#include <utility>

namespace vorna::contracts {

// Owns one reference to a GObject. Copies take a reference of their own, so a
// GObject never outlives or undercuts its owners and application code never
// calls g_object_ref or g_object_unref by hand.
template <typename T>
class GObjectPtr {
 public:
  GObjectPtr() = default;
  GObjectPtr(const GObjectPtr& other) : object_(other.object_) {
    if (object_ != nullptr) {
      g_object_ref(object_);
    }
  }
  GObjectPtr(GObjectPtr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  GObjectPtr& operator=(GObjectPtr other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }
  ~GObjectPtr() { reset(); }

  // Takes over a reference the caller already owns (a "transfer full" result).
  static GObjectPtr adopt(T* object) { return GObjectPtr(object); }
  // Takes a new reference to an object owned elsewhere ("transfer none").
  // A floating reference is sunk, so the result owns a real one.
  static GObjectPtr ref(T* object) {
    if (object != nullptr) {
      g_object_ref_sink(object);
    }
    return GObjectPtr(object);
  }

  T* get() const { return object_; }
  T* operator->() const { return object_; }
  explicit operator bool() const { return object_ != nullptr; }

  void reset() {
    if (T* object = std::exchange(object_, nullptr)) {
      g_object_unref(object);
    }
  }

 private:
  explicit GObjectPtr(T* object) : object_(object) {}

  T* object_ = nullptr;
};

}  // namespace vorna::contracts
