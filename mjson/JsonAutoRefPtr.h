// Intrusive reference counting for the JSON value library.
//
// Every value is a heap object that starts life with one owner. The first
// JsonAutoRefPtr that receives a fresh object adopts that count instead of
// adding to it, so `JsonAutoRefPtr<JsonValue> v(new JsonNull)` leaves the count
// at exactly 1. Further copies add a reference; destruction releases one.
#pragma once

#include <assert.h>

#include <atomic>
#include <cstdint>
#include <utility>

namespace mjson::detail::pool {
struct PendingDeletes;
}

class JsonUseCounted {
 public:
  JsonUseCounted() noexcept : fUseCount(1) {}
  // A copy is a new object with an owner of its own.
  JsonUseCounted(const JsonUseCounted&) noexcept : fUseCount(1) {}
  JsonUseCounted& operator=(const JsonUseCounted&) noexcept { return *this; }

  void AddRef() const noexcept { fUseCount.fetch_add(1, std::memory_order_relaxed); }

  // Returns true when this call dropped the last reference. Releasing an
  // object that has no owner left is a programming error that must never be
  // silenced, so the check stays on in release builds.
  bool Release() const noexcept {
    const int32_t word = fUseCount.load(std::memory_order_acquire);
    const int32_t count = word & kCountMask;
    if (count < 1) [[unlikely]]
      FailUseCountCheck();
    // The sole owner needs no atomic update: nobody else holds a reference
    // through which the count could change. Trees are mostly freed this way.
    if (count == 1) {
      fUseCount.store(word & ~kCountMask, std::memory_order_relaxed);
      Destroy();
      return true;
    }
    if ((fUseCount.fetch_sub(1, std::memory_order_acq_rel) & kCountMask) == 1) {
      Destroy();
      return true;
    }
    return false;
  }

  int32_t UseCount() const noexcept {
    return fUseCount.load(std::memory_order_relaxed) & kCountMask;
  }

 protected:
  virtual ~JsonUseCounted() = default;

  // True when the caller holds the only reference. The acquire pairs with
  // the release of the other owners' Release, so whatever they did with the
  // object happened before the caller goes on to delete it.
  bool SoleOwner() const noexcept {
    return (fUseCount.load(std::memory_order_acquire) & kCountMask) == 1;
  }

  // The count word's top bits below the sign are not part of the count: a
  // subclass may keep a flag there that must change atomically with
  // respect to other owners (it survives the last release).
  static constexpr int32_t kCountMask = 0x3FFFFFFF;
  static constexpr int32_t kCountFlag = 0x40000000;
  // Adds a reference; returns whether the flag was set before.
  bool AddRefSeeingFlag() const noexcept {
    return (fUseCount.fetch_add(1, std::memory_order_relaxed) & kCountFlag) != 0;
  }
  // Sets the flag; true when this call set it.
  bool SetCountFlag() const noexcept {
    return (fUseCount.fetch_or(kCountFlag, std::memory_order_acq_rel) & kCountFlag) == 0;
  }
  bool CountFlag() const noexcept {
    return (fUseCount.load(std::memory_order_acquire) & kCountFlag) != 0;
  }

  // Ends this object once its last reference is gone: deletes it, unless a
  // subclass knows better where its memory goes. `pending` is the queue of
  // the deletion under way (see Destroy), null where there is none.
  virtual void Dispose(mjson::detail::pool::PendingDeletes* pending) const noexcept {
    (void)pending;
    delete this;
  }

 private:
  // Disposes of this object. Children released while a tree is being torn
  // down are queued and disposed of by the outermost call, so freeing a tree
  // of any depth takes constant stack.
  void Destroy() const noexcept;
  [[noreturn]] static void FailUseCountCheck() noexcept;

  mutable std::atomic<int32_t> fUseCount;
};

template <class T>
class JsonAutoRefPtr {
 public:
  JsonAutoRefPtr() noexcept : fPtr(nullptr) {}
  JsonAutoRefPtr(std::nullptr_t) noexcept : fPtr(nullptr) {}
  // Adopts the reference that `p` carries.
  explicit JsonAutoRefPtr(T* p) noexcept : fPtr(p) {}
  JsonAutoRefPtr(const JsonAutoRefPtr& other) noexcept : fPtr(other.fPtr) { AddRefImpl(); }
  JsonAutoRefPtr(JsonAutoRefPtr&& other) noexcept : fPtr(other.fPtr) { other.fPtr = nullptr; }
  template <class U>
  JsonAutoRefPtr(const JsonAutoRefPtr<U>& other) noexcept : fPtr(other.get()) {
    AddRefImpl();
  }
  template <class U>
  JsonAutoRefPtr(JsonAutoRefPtr<U>&& other) noexcept : fPtr(other.release()) {}
  ~JsonAutoRefPtr() { ReleaseImpl(); }

  JsonAutoRefPtr& operator=(const JsonAutoRefPtr& other) noexcept {
    if (this == &other) return *this;
    T* old = fPtr;
    fPtr = other.fPtr;
    AddRefImpl();
    if (old) old->Release();
    return *this;
  }
  JsonAutoRefPtr& operator=(JsonAutoRefPtr&& other) noexcept {
    if (this == &other) return *this;
    T* old = fPtr;
    fPtr = other.fPtr;
    other.fPtr = nullptr;
    if (old) old->Release();
    return *this;
  }
  template <class U>
  JsonAutoRefPtr& operator=(const JsonAutoRefPtr<U>& other) noexcept {
    return *this = JsonAutoRefPtr(other);
  }
  template <class U>
  JsonAutoRefPtr& operator=(JsonAutoRefPtr<U>&& other) noexcept {
    return *this = JsonAutoRefPtr(std::move(other));
  }

  // Releases the current target and adopts `p` without adding a reference.
  template <class U>
  void reset(U* p) noexcept {
    T* old = fPtr;
    fPtr = p;
    if (old) old->Release();
  }
  void reset() noexcept {
    T* old = fPtr;
    fPtr = nullptr;
    if (old) old->Release();
  }
  // Hands the reference to the caller.
  T* release() noexcept {
    T* p = fPtr;
    fPtr = nullptr;
    return p;
  }

  T* get() const noexcept { return fPtr; }
  T* operator->() const noexcept { return fPtr; }
  T& operator*() const noexcept { return *fPtr; }
  explicit operator bool() const noexcept { return fPtr != nullptr; }

 private:
  void AddRefImpl() const noexcept {
    if (fPtr) fPtr->AddRef();
  }
  void ReleaseImpl() noexcept {
    if (fPtr) fPtr->Release();
  }

  T* fPtr;
};

namespace mjson {

// A new owner of a value that somebody else already owns (a container's
// element, say): adds a reference. Null stays null.
template <class T>
JsonAutoRefPtr<T> JsonShare(T* p) noexcept {
  if (p) p->AddRef();
  return JsonAutoRefPtr<T>(p);
}

}  // namespace mjson

template <class T, class U>
bool operator==(const JsonAutoRefPtr<T>& a, const JsonAutoRefPtr<U>& b) noexcept {
  return a.get() == b.get();
}
