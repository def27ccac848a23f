// Reference-counted automation objects.
//
// Every class of the library, and every client object that the library talks
// to by name (a form, a control a storage string binds to), derives from
// `Object`. An object lives as long as some `Ref` holds it: the last `Ref` to
// let go destroys it. Objects are used by one thread at a time; the reference
// count itself is atomic so that handing a reference to another thread is
// safe.
#ifndef TARVO2_OBJECT_H_
#define TARVO2_OBJECT_H_

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "tarvo2/export.h"

namespace tarvo2 {

using String = std::u16string;
using StringView = std::u16string_view;

class Variant;
struct TypeInfo;
class CallArgs;
template <class T>
class Ref;

// Dispatch identities with a fixed meaning.
using DispId = std::int32_t;
inline constexpr DispId kDispIdValue = 0;       // the default member
inline constexpr DispId kDispIdNewEnum = -4;    // the enumerator member
inline constexpr DispId kDispIdUnknown = -1;    // no member of that name

// How a member is invoked. A plain read (`x = obj.Name`) may be served by a
// method or a property read alike, so callers pass kGet or kMethod and the
// dispatcher accepts either kind of member for both.
enum class InvokeKind : std::uint8_t {
  kMethod = 1,
  kGet = 2,
  kLet = 4,  // property assignment of a value
  kSet = 8,  // property assignment of an object reference
};

class TARVO2_EXPORT Object {
 public:
  Object() = default;
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;
  virtual ~Object() = default;

  void AddRef() const noexcept { refs_.fetch_add(1, std::memory_order_relaxed); }
  void Release() const noexcept {
    if (refs_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
  }
  std::int32_t RefCount() const noexcept { return refs_.load(std::memory_order_relaxed); }

  // The type information of the object's default interface: its class name,
  // its members in slot order, their parameters, defaults and help texts.
  virtual const TypeInfo& GetTypeInfo() const = 0;

  // The class name as clients see it (TypeName of the object).
  virtual String ClassName() const;

  // Maps a member name (without regard to letter case) to its dispatch
  // identity; kDispIdUnknown when the object has no such member.
  virtual DispId GetIdOfName(StringView name) const;

  // Invokes member `id` with `args` (positional and named arguments, some
  // of them by reference). The default implementation binds the arguments
  // with the type information and calls the member's invoker. Errors:
  // 438 for an unknown member or a kind the member does not support,
  // 449 for a required argument left out, 450 for too many arguments,
  // 448 for an unknown named argument, 13/6/94 when an argument cannot be
  // converted to the parameter's type; errors raised by the member itself
  // pass through unchanged.
  virtual Variant Invoke(DispId id, InvokeKind kind, CallArgs& args);

  // Returns the object's view under another interface name (compared
  // without regard to letter case), or an empty Ref when it has none.
  // Every object answers to its own class name with itself.
  virtual Ref<Object> QueryInterface(StringView interface_name);

 private:
  mutable std::atomic<std::int32_t> refs_{0};
};

// Intrusive owning pointer to an Object (or a class derived from it).
template <class T>
class Ref {
 public:
  Ref() noexcept = default;
  Ref(std::nullptr_t) noexcept {}
  Ref(T* p) noexcept : p_(p) { if (p_) p_->AddRef(); }
  Ref(const Ref& o) noexcept : p_(o.p_) { if (p_) p_->AddRef(); }
  Ref(Ref&& o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
  template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
  Ref(const Ref<U>& o) noexcept : p_(o.get()) { if (p_) p_->AddRef(); }
  template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
  Ref(Ref<U>&& o) noexcept : p_(o.release()) {}
  ~Ref() { if (p_) p_->Release(); }

  Ref& operator=(Ref o) noexcept { std::swap(p_, o.p_); return *this; }

  T* get() const noexcept { return p_; }
  T* operator->() const noexcept { return p_; }
  T& operator*() const noexcept { return *p_; }
  explicit operator bool() const noexcept { return p_ != nullptr; }
  T* release() noexcept { return std::exchange(p_, nullptr); }
  void reset() noexcept { Ref().swap(*this); }
  void swap(Ref& o) noexcept { std::swap(p_, o.p_); }

  friend bool operator==(const Ref& a, const Ref& b) noexcept { return a.p_ == b.p_; }
  friend bool operator==(const Ref& a, std::nullptr_t) noexcept { return a.p_ == nullptr; }

 private:
  T* p_ = nullptr;
};

template <class T, class... A>
Ref<T> MakeRef(A&&... args) {
  return Ref<T>(new T(std::forward<A>(args)...));
}

// Downcast: an empty Ref when `p` is not a T.
template <class T, class U>
Ref<T> RefCast(const Ref<U>& p) {
  return Ref<T>(dynamic_cast<T*>(p.get()));
}


}  // namespace tarvo2

#endif  // TARVO2_OBJECT_H_
