// Dispatch: type information as data, and calls by member name.
//
// Each class publishes one TypeInfo: its members in slot order, each with its
// kind (method, property read, Let or Set), parameters (names, types,
// optional flags, defaults, by-reference flags), result type, help text and
// the invoker that calls the C++ member. The same table answers
// introspection and drives Object::Invoke: there is no per-member code in
// the dispatcher. Tables are built once with ClassBuilder:
//
//   static const TypeInfo& Info() {
//     static const TypeInfo info = ClassBuilder<KivFoo>(u"KivFoo")
//         .Get(u"Value", &KivFoo::get_Value, u"The value")
//         .Let(u"Value", &KivFoo::put_Value, u"The value")
//         .Method(u"SetValue", &KivFoo::SetValue, u"Sets a value",
//                 {P(u"sFieldName"), P(u"vValue"), P(u"sDelimiter", u"\t")})
//         .Build();
//     return info;
//   }
//
// C++ parameter types map to automation types: String/StringView -> String,
// bool -> Boolean, int32_t and enums -> Long, int16_t -> Integer, double ->
// Double, Variant (by value or const&) -> Variant, Variant& -> Variant passed
// by reference, Ref<T> -> object. Results likewise, plus SafeArray -> an
// array and void -> no result.
#ifndef TARVO2_DISPATCH_H_
#define TARVO2_DISPATCH_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "tarvo2/convert.h"
#include "tarvo2/error.h"
#include "tarvo2/export.h"
#include "tarvo2/object.h"
#include "tarvo2/variant.h"

namespace tarvo2 {

// ---------------------------------------------------------------------------
// Arguments of one call.

// One argument: a value, or a reference to the caller's Variant (written
// back when the member changes a by-reference parameter), optionally named.
struct TARVO2_EXPORT Arg {
  Arg(Variant v) : value(std::move(v)) {}
  template <class T, class = std::enable_if_t<std::is_constructible_v<Variant, T>>>
  Arg(T&& v) : value(std::forward<T>(v)) {}
  Variant value;
  Variant* ref = nullptr;
  String name;
};
// A by-reference argument: the member may change `v`.
inline Arg ByRef(Variant& v) { Arg a{Variant()}; a.ref = &v; return a; }
// A named argument (`name:=value`).
inline Arg Named(String name, Variant v) { Arg a{std::move(v)}; a.name = std::move(name); return a; }
inline Arg NamedByRef(String name, Variant& v) { Arg a = ByRef(v); a.name = std::move(name); return a; }
// An explicitly omitted argument (its default applies).
inline Arg Omitted() { return Arg{Variant::Missing()}; }

class TARVO2_EXPORT CallArgs {
 public:
  CallArgs() = default;
  CallArgs(std::initializer_list<Arg> args) : args_(args) {}
  explicit CallArgs(std::vector<Arg> args) : args_(std::move(args)) {}

  std::vector<Arg>& items() noexcept { return args_; }
  const std::vector<Arg>& items() const noexcept { return args_; }
  std::size_t size() const noexcept { return args_.size(); }
  // The argument's current value (through its reference, if it has one).
  Variant& ValueAt(std::size_t i) { return args_[i].ref ? *args_[i].ref : args_[i].value; }

 private:
  std::vector<Arg> args_;
};

// ---------------------------------------------------------------------------
// Type information.

struct TARVO2_EXPORT ParamInfo {
  String name;
  VarType type = VarType::kVariant;
  bool optional = false;
  bool by_ref = false;
  std::optional<Variant> default_value;  // only for optional parameters
};

// What the table gives for a parameter: its name and, for an optional one,
// its default (or no default: the missing-argument marker is passed).
struct TARVO2_EXPORT ParamSpec {
  String name;
  bool optional = false;
  std::optional<Variant> default_value;
  std::optional<VarType> type;  // overrides the type derived from C++
  bool in_out = false;          // passed by reference though C++ takes a value

  // Declares the parameter's automation type where the C++ type does not
  // say it (an object passed by reference is a Variant& in C++).
  ParamSpec Typed(VarType t) && { type = t; return std::move(*this); }
  // Declares the parameter as passed by reference where the member only
  // reads it, so C++ takes it by value: clients see a by-reference
  // parameter, and the caller's variable is never changed.
  ParamSpec InOut() && { in_out = true; return std::move(*this); }
};
// A required parameter.
inline ParamSpec P(String name) { return ParamSpec{std::move(name), false, std::nullopt, std::nullopt, false}; }
// An optional parameter with a default value.
inline ParamSpec P(String name, Variant default_value) {
  return ParamSpec{std::move(name), true, std::move(default_value), std::nullopt, false};
}
// An optional parameter without a default: omitted, it receives the
// missing-argument marker.
inline ParamSpec Opt(String name) { return ParamSpec{std::move(name), true, std::nullopt, std::nullopt, false}; }

// Invokes a member on `self` with its bound arguments: one slot per
// parameter, already filled with defaults or the missing marker.
using Invoker = std::function<Variant(Object& self, std::vector<Variant*>& slots)>;

struct TARVO2_EXPORT MemberInfo {
  DispId id = kDispIdUnknown;
  String name;
  InvokeKind kind = InvokeKind::kMethod;
  std::vector<ParamInfo> params;
  VarType result = VarType::kEmpty;  // kEmpty: no result
  String help;
  bool hidden = false;
  Invoker invoke;
};

struct TARVO2_EXPORT TypeInfo {
  String name;           // class name
  String help;
  bool creatable = false;
  std::vector<MemberInfo> members;  // slot order

  // The members answering to `id`, in slot order.
  const MemberInfo* Find(DispId id, InvokeKind kind) const;
  DispId IdOfName(StringView name) const;
  // The member of that name and kind, or nullptr.
  const MemberInfo* FindByName(StringView name, InvokeKind kind) const;
};

// Binds `args` to `member`'s parameters and calls it. Used by
// Object::Invoke; errors as documented there.
TARVO2_EXPORT Variant InvokeMember(Object& self, const MemberInfo& member, CallArgs& args);

// ---------------------------------------------------------------------------
// Calling by name (late binding).

// Invokes the member `name` of the object held by `target`. Records answer
// property reads of their fields. Errors: 91 when `target` is Nothing, 424
// when it is not an object, 438 for an unknown member; then as
// Object::Invoke.
TARVO2_EXPORT Variant Invoke(const Variant& target, StringView name, InvokeKind kind, CallArgs args = {});
inline Variant Call(const Variant& target, StringView name, CallArgs args = {}) {
  return Invoke(target, name, InvokeKind::kMethod, std::move(args));
}
inline Variant GetProperty(const Variant& target, StringView name, CallArgs args = {}) {
  return Invoke(target, name, InvokeKind::kGet, std::move(args));
}
// `target.name = value` (Let).
TARVO2_EXPORT void LetProperty(const Variant& target, StringView name, Variant value);
// `Set target.name = value`.
TARVO2_EXPORT void SetProperty(const Variant& target, StringView name, Variant value);

// Object identity, as a client's `Is` operator compares two references:
// true when `a` and `b` hold the same object, reached through any of its
// interfaces (a store and every common-interface view of it are one
// object), and true when both hold Nothing. An object's identity is what
// it answers when asked for its own class name, QueryInterface(ClassName())
// (every object answers with itself unless it is a view of another), or
// the object itself when it answers nothing. Errors: 424 when `a` or `b`
// is not an object reference (Nothing is one).
TARVO2_EXPORT bool SameObject(const Variant& a, const Variant& b);

// Runs `fn` for every element that the object's enumerator (dispatch
// identity -4) yields, in order.
TARVO2_EXPORT void ForEach(const Variant& collection, const std::function<void(const Variant&)>& fn);

// An enumerator object, as a NewEnum member returns it.
class TARVO2_EXPORT Enumerator : public Object {
 public:
  // Stores the next element in `out` and returns true, or returns false
  // after the last one.
  virtual bool Next(Variant& out) = 0;
  virtual void Reset() = 0;
  const TypeInfo& GetTypeInfo() const override;
};

// An enumerator over a snapshot of values.
class TARVO2_EXPORT ListEnumerator : public Enumerator {
 public:
  explicit ListEnumerator(std::vector<Variant> items) : items_(std::move(items)) {}
  bool Next(Variant& out) override;
  void Reset() override { pos_ = 0; }
 private:
  std::vector<Variant> items_;
  std::size_t pos_ = 0;
};

// ---------------------------------------------------------------------------
// Argument and result conversion for the builder.

namespace detail {

template <class T>
struct ArgTraits;  // specialised below

template <>
struct ArgTraits<Variant> {
  static constexpr VarType kType = VarType::kVariant;
  static constexpr bool kByRef = false;
  static Variant From(Variant& v) { return v; }
};
template <>
struct ArgTraits<const Variant&> : ArgTraits<Variant> {
  static const Variant& From(Variant& v) { return v; }
};
template <>
struct ArgTraits<Variant&> {
  static constexpr VarType kType = VarType::kVariant;
  static constexpr bool kByRef = true;
  static Variant& From(Variant& v) { return v; }
};
template <>
struct ArgTraits<String> {
  static constexpr VarType kType = VarType::kString;
  static constexpr bool kByRef = false;
  static String From(Variant& v) { return v.IsString() ? v.AsString() : ToString(v); }
};
template <>
struct ArgTraits<const String&> : ArgTraits<String> {};
template <>
struct ArgTraits<StringView> {
  static constexpr VarType kType = VarType::kString;
  static constexpr bool kByRef = false;
  // The view must outlive the call: convert in place in the slot.
  static StringView From(Variant& v) {
    if (!v.IsString()) v = Variant(ToString(v));
    return v.AsString();
  }
};
template <>
struct ArgTraits<bool> {
  static constexpr VarType kType = VarType::kBoolean;
  static constexpr bool kByRef = false;
  static bool From(Variant& v) { return ToBool(v); }
};
template <>
struct ArgTraits<std::int32_t> {
  static constexpr VarType kType = VarType::kLong;
  static constexpr bool kByRef = false;
  static std::int32_t From(Variant& v) { return ToLong(v); }
};
template <>
struct ArgTraits<std::int16_t> {
  static constexpr VarType kType = VarType::kInteger;
  static constexpr bool kByRef = false;
  static std::int16_t From(Variant& v) { return ToInteger(v); }
};
template <>
struct ArgTraits<double> {
  static constexpr VarType kType = VarType::kDouble;
  static constexpr bool kByRef = false;
  static double From(Variant& v) { return ToDouble(v); }
};
template <class T>
struct ArgTraits<Ref<T>> {
  static constexpr VarType kType = VarType::kObject;
  static constexpr bool kByRef = false;
  static Ref<T> From(Variant& v) {
    Ref<Object> o = ToObject(v);
    if (!o) return Ref<T>();
    Ref<T> t = RefCast<T>(o);
    if (!t) RaiseRuntimeError(err::kTypeMismatch);
    return t;
  }
};
template <class T>
struct ArgTraits<const Ref<T>&> : ArgTraits<Ref<T>> {};

template <class E>
struct EnumArgTraits {
  static constexpr VarType kType = VarType::kLong;
  static constexpr bool kByRef = false;
  static E From(Variant& v) { return static_cast<E>(ToLong(v)); }
};

template <class T>
using ArgT = std::conditional_t<std::is_enum_v<std::remove_cvref_t<T>>,
                                EnumArgTraits<std::remove_cvref_t<T>>, ArgTraits<T>>;

template <class R>
Variant ToResult(R&& r) {
  using D = std::remove_cvref_t<R>;
  if constexpr (std::is_enum_v<D>) {
    return Variant(static_cast<std::int32_t>(r));
  } else {
    return Variant(std::forward<R>(r));
  }
}

template <class R>
constexpr VarType ResultType() {
  using D = std::remove_cvref_t<R>;
  if constexpr (std::is_void_v<D>) return VarType::kEmpty;
  else if constexpr (std::is_same_v<D, bool>) return VarType::kBoolean;
  else if constexpr (std::is_same_v<D, String>) return VarType::kString;
  else if constexpr (std::is_same_v<D, std::int32_t> || std::is_enum_v<D>) return VarType::kLong;
  else if constexpr (std::is_same_v<D, std::int16_t>) return VarType::kInteger;
  else if constexpr (std::is_same_v<D, double>) return VarType::kDouble;
  else if constexpr (std::is_same_v<D, SafeArray>) return ArrayOf(VarType::kVariant);
  else if constexpr (std::is_same_v<D, Variant>) return VarType::kVariant;
  else return VarType::kObject;
}

// Decomposes a member function pointer, or a callable taking (C&, Args...).
template <class F>
struct MemberSig;
template <class C, class R, class... A>
struct MemberSig<R (C::*)(A...)> {
  using Result = R;
  using Args = std::tuple<A...>;
};
template <class C, class R, class... A>
struct MemberSig<R (C::*)(A...) const> {
  using Result = R;
  using Args = std::tuple<A...>;
};
template <class Op>
struct LambdaSig;
template <class L, class R, class C, class... A>
struct LambdaSig<R (L::*)(C&, A...) const> {
  using Result = R;
  using Args = std::tuple<A...>;
};
template <class L, class R, class C, class... A>
struct LambdaSig<R (L::*)(C&, A...)> {
  using Result = R;
  using Args = std::tuple<A...>;
};
template <class F, bool = std::is_member_function_pointer_v<F>>
struct Signature : MemberSig<F> {};
template <class F>
struct Signature<F, false> : LambdaSig<decltype(&F::operator())> {};

template <class C, class F, class... A, std::size_t... I>
Variant CallWith(C& self, F& f, std::vector<Variant*>& slots, std::tuple<A...>*,
                 std::index_sequence<I...>) {
  using R = typename Signature<F>::Result;
  // Convert every argument first, in parameter order, so that a conversion
  // error leaves the member uncalled.
  std::tuple<decltype(ArgT<A>::From(*slots[I]))...> conv{ArgT<A>::From(*slots[I])...};
  if constexpr (std::is_void_v<R>) {
    std::invoke(f, self, std::forward<decltype(std::get<I>(conv))>(std::get<I>(conv))...);
    return Variant();
  } else {
    return ToResult(std::invoke(f, self, std::forward<decltype(std::get<I>(conv))>(std::get<I>(conv))...));
  }
}

template <class C, class F>
Invoker MakeInvoker(F f) {
  using Args = typename Signature<F>::Args;
  return [f](Object& self, std::vector<Variant*>& slots) mutable -> Variant {
    constexpr std::size_t n = std::tuple_size_v<Args>;
    return CallWith<C>(static_cast<C&>(self), f, slots, static_cast<Args*>(nullptr),
                       std::make_index_sequence<n>());
  };
}

template <class A>
ParamInfo MakeParam(const ParamSpec& decl) {
  ParamInfo p;
  p.name = decl.name;
  p.type = decl.type ? *decl.type : ArgT<A>::kType;
  p.by_ref = ArgT<A>::kByRef || decl.in_out;
  p.optional = decl.optional;
  p.default_value = decl.default_value;
  return p;
}

template <class F, class... A>
std::vector<ParamInfo> MakeParams(const std::vector<ParamSpec>& decls, std::tuple<A...>*) {
  if (decls.size() != sizeof...(A)) throw std::logic_error("parameter table does not match the member");
  std::vector<ParamInfo> out;
  std::size_t i = 0;
  (out.push_back(MakeParam<A>(decls[i++])), ...);
  return out;
}

}  // namespace detail

// Builds the TypeInfo of class C. Dispatch identities are given in slot
// order from 1; a member named Value gets 0 (the default member) and one
// named NewEnum gets -4. Property reads and writes of one name share an id.
template <class C>
class ClassBuilder {
 public:
  explicit ClassBuilder(String class_name, bool creatable = true) {
    info_.name = std::move(class_name);
    info_.creatable = creatable;
  }

  ClassBuilder& Help(String help) { info_.help = std::move(help); return *this; }

  template <class F>
  ClassBuilder& Method(String name, F f, String help, std::vector<ParamSpec> params = {}) {
    return Add(std::move(name), InvokeKind::kMethod, f, std::move(help), params);
  }
  template <class F>
  ClassBuilder& Get(String name, F f, String help, std::vector<ParamSpec> params = {}) {
    return Add(std::move(name), InvokeKind::kGet, f, std::move(help), params);
  }
  // A Let accessor: the last parameter is the assigned value; `params`
  // names the index parameters before it (if any) and the value.
  template <class F>
  ClassBuilder& Let(String name, F f, String help, std::vector<ParamSpec> params = {P(u"vNewValue")}) {
    return Add(std::move(name), InvokeKind::kLet, f, std::move(help), params);
  }
  template <class F>
  ClassBuilder& Set(String name, F f, String help, std::vector<ParamSpec> params = {P(u"oNewValue")}) {
    return Add(std::move(name), InvokeKind::kSet, f, std::move(help), params);
  }
  // Marks the member added last as hidden from listings.
  ClassBuilder& Hidden() { info_.members.back().hidden = true; return *this; }

  TypeInfo Build() { return std::move(info_); }

 private:
  template <class F>
  ClassBuilder& Add(String name, InvokeKind kind, F f, String help, const std::vector<ParamSpec>& params) {
    using Sig = detail::Signature<F>;
    MemberInfo m;
    m.name = std::move(name);
    m.kind = kind;
    m.help = std::move(help);
    m.params = detail::MakeParams<F>(params, static_cast<typename Sig::Args*>(nullptr));
    m.result = detail::ResultType<typename Sig::Result>();
    m.invoke = detail::MakeInvoker<C>(f);
    m.id = AssignId(m.name);
    info_.members.push_back(std::move(m));
    return *this;
  }

  DispId AssignId(const String& name) {
    if (EqualsNoCase(name, u"Value")) return kDispIdValue;
    if (EqualsNoCase(name, u"NewEnum") || EqualsNoCase(name, u"_NewEnum")) return kDispIdNewEnum;
    for (const auto& m : info_.members)
      if (EqualsNoCase(m.name, name)) return m.id;
    return ++next_id_;
  }

  TypeInfo info_;
  DispId next_id_ = 0;
};

// ---------------------------------------------------------------------------
// Client objects built at run time.

// An object whose properties are created by assignment: reading a property
// that was never assigned raises 438. Handy as a client object (a form, a
// control) in applications and tests. Its default property is "Value" when
// one has been assigned.
class TARVO2_EXPORT DynamicObject : public Object {
 public:
  explicit DynamicObject(String class_name = u"Object");
  const TypeInfo& GetTypeInfo() const override { return info_; }
  String ClassName() const override { return info_.name; }
  DispId GetIdOfName(StringView name) const override;
  Variant Invoke(DispId id, InvokeKind kind, CallArgs& args) override;

  // Direct access for the host application.
  void Put(StringView name, Variant v);
  const Variant* Find(StringView name) const;

 private:
  TypeInfo info_;
  std::vector<std::pair<String, Variant>> props_;
  std::vector<String> pending_;  // names asked for before their first assignment
};

}  // namespace tarvo2

#endif  // TARVO2_DISPATCH_H_
