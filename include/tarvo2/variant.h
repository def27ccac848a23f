// Variant: the tagged value that crosses every public interface.
//
// A Variant holds one of: Empty, Null, Boolean, Byte, Integer (16-bit),
// Long (32-bit), Single, Double, Currency, Date, String (16-bit units), an
// object reference (possibly Nothing), an Error value, a record, or a
// one-dimensional array of any of these with any lower bound. Variants, their
// arrays and their records have value semantics: copying a Variant copies the
// array or record it holds; object references are shared.
#ifndef TARVO2_VARIANT_H_
#define TARVO2_VARIANT_H_

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "tarvo2/export.h"
#include "tarvo2/object.h"

namespace tarvo2 {

// Type tags, numbered as automation clients know them.
enum class VarType : std::uint16_t {
  kEmpty = 0,
  kNull = 1,
  kInteger = 2,
  kLong = 3,
  kSingle = 4,
  kDouble = 5,
  kCurrency = 6,
  kDate = 7,
  kString = 8,
  kObject = 9,
  kError = 10,
  kBoolean = 11,
  kVariant = 12,  // element type of an array of Variants
  kByte = 17,
  kRecord = 36,
  kArray = 0x2000,  // flag: or-ed with the element type
};

// The type tag of an array of `element` (kArray or-ed with it).
constexpr VarType ArrayOf(VarType element) noexcept {
  return static_cast<VarType>(static_cast<std::uint16_t>(VarType::kArray) | static_cast<std::uint16_t>(element));
}

// Error codes carried by Error values.
inline constexpr std::int32_t kMissingArgument = static_cast<std::int32_t>(0x80020004);

struct TARVO2_EXPORT NullValue {
  friend bool operator==(NullValue, NullValue) { return true; }
};
// A Currency value: a 64-bit integer count of ten-thousandths.
struct TARVO2_EXPORT Currency {
  std::int64_t scaled = 0;
  friend bool operator==(Currency, Currency) = default;
};
// A Date value: days since 30 December 1899, the fraction being the time.
struct TARVO2_EXPORT Date {
  double serial = 0;
  friend bool operator==(Date, Date) = default;
};
// An Error value (VT_ERROR): an SCODE. kMissingArgument marks an omitted
// optional argument.
struct TARVO2_EXPORT ErrorValue {
  std::int32_t code = kMissingArgument;
  friend bool operator==(ErrorValue, ErrorValue) = default;
};

class Variant;
class SafeArray;
class Record;

namespace detail {
// A heap box with value semantics (deep copy), so that Variant can hold the
// recursive types SafeArray and Record.
template <class T>
class Box {
 public:
  Box() : p_(std::make_unique<T>()) {}
  explicit Box(T v) : p_(std::make_unique<T>(std::move(v))) {}
  Box(const Box& o) : p_(std::make_unique<T>(*o.p_)) {}
  Box(Box&&) noexcept = default;
  Box& operator=(const Box& o) { if (this != &o) p_ = std::make_unique<T>(*o.p_); return *this; }
  Box& operator=(Box&&) noexcept = default;
  T& operator*() const { return *p_; }
  T* operator->() const { return p_.get(); }
 private:
  std::unique_ptr<T> p_;
};
}  // namespace detail

class TARVO2_EXPORT Variant {
 public:
  Variant() noexcept = default;  // Empty
  Variant(NullValue) : v_(NullValue{}) {}
  Variant(bool b) : v_(b) {}
  Variant(std::uint8_t b) : v_(b) {}
  Variant(std::int16_t i) : v_(i) {}
  Variant(std::int32_t l) : v_(l) {}
  Variant(float f) : v_(f) {}
  Variant(double d) : v_(d) {}
  Variant(Currency c) : v_(c) {}
  Variant(Date d) : v_(d) {}
  Variant(String s) : v_(std::move(s)) {}
  Variant(StringView s) : v_(String(s)) {}
  Variant(const char16_t* s) : v_(String(s)) {}
  Variant(ErrorValue e) : v_(e) {}
  Variant(SafeArray a);
  Variant(Record r);
  template <class T, class = std::enable_if_t<std::is_base_of_v<Object, T>>>
  Variant(const Ref<T>& o) : v_(Ref<Object>(o)) {}
  template <class T, class = std::enable_if_t<std::is_base_of_v<Object, T>>>
  Variant(T* o) : v_(Ref<Object>(o)) {}
  // Not a Boolean: refuse pointers other than objects and strings.
  Variant(const char*) = delete;

  static Variant Null() { return Variant(NullValue{}); }
  static Variant Missing() { return Variant(ErrorValue{kMissingArgument}); }
  static Variant Nothing() { return Variant(Ref<Object>()); }

  // The type tag; arrays answer kArray | element type.
  VarType Type() const noexcept;
  // The element type of an array, kEmpty for a scalar.
  VarType ElementType() const noexcept;

  bool IsEmpty() const noexcept { return std::holds_alternative<std::monostate>(v_); }
  bool IsNull() const noexcept { return std::holds_alternative<NullValue>(v_); }
  bool IsBoolean() const noexcept { return std::holds_alternative<bool>(v_); }
  bool IsLong() const noexcept { return std::holds_alternative<std::int32_t>(v_); }
  bool IsDouble() const noexcept { return std::holds_alternative<double>(v_); }
  bool IsString() const noexcept { return std::holds_alternative<String>(v_); }
  bool IsObject() const noexcept { return std::holds_alternative<Ref<Object>>(v_); }
  bool IsError() const noexcept { return std::holds_alternative<ErrorValue>(v_); }
  bool IsMissing() const noexcept { return IsError() && AsError().code == kMissingArgument; }
  bool IsArray() const noexcept { return std::holds_alternative<detail::Box<SafeArray>>(v_); }
  bool IsRecord() const noexcept { return std::holds_alternative<detail::Box<Record>>(v_); }
  // A number of any of the numeric types (Byte to Currency, Date excluded).
  bool IsNumber() const noexcept;

  // Typed access. The caller must have checked the type; a wrong type
  // raises "Type mismatch" (13).
  bool AsBool() const;
  std::int32_t AsLong() const;
  double AsDouble() const;
  const String& AsString() const;
  const Ref<Object>& AsObject() const;
  ErrorValue AsError() const;
  const SafeArray& AsArray() const;
  SafeArray& AsArray();
  const Record& AsRecord() const;
  Record& AsRecord();

  // Calls `f` with the value held, as its own type, and returns what `f`
  // returns: std::monostate (Empty), NullValue, bool, std::uint8_t (Byte),
  // std::int16_t (Integer), std::int32_t (Long), float (Single), double,
  // Currency, Date, String, Ref<Object>, ErrorValue, SafeArray or Record.
  // `f` must accept every one of them and return one type for all.
  template <class F>
  decltype(auto) Visit(F&& f) const;

  // The value when the Variant holds exactly a T (one of the types that
  // Visit passes), else null. Valid until the Variant changes.
  template <class T>
  const T* GetIf() const noexcept;

  // Exact equality of type and value (arrays and records element by
  // element, objects by identity). Not the runtime's comparison operator.
  friend TARVO2_EXPORT bool operator==(const Variant& a, const Variant& b);

 private:
  using Storage = std::variant<std::monostate, NullValue, bool, std::uint8_t, std::int16_t, std::int32_t,
                               float, double, Currency, Date, String, Ref<Object>, ErrorValue,
                               detail::Box<SafeArray>, detail::Box<Record>>;
  Storage v_;
};

// A one-dimensional array with any lower bound, or a not-yet-sized array
// (no dimensions at all, like a dynamic array that was never sized).
// Elements are Variants; a typed array (element type other than kVariant)
// keeps every element converted to its element type.
class TARVO2_EXPORT SafeArray {
 public:
  // A not-yet-sized array of the given element type.
  explicit SafeArray(VarType element_type = VarType::kVariant);
  // A sized array of `count` elements from `lower_bound`, each the element
  // type's initial value (0, "", False, Empty, Nothing).
  SafeArray(VarType element_type, std::int32_t lower_bound, std::size_t count);

  // Builders for the common shapes, indexed from 0.
  static SafeArray OfStrings(std::vector<String> items, std::int32_t lower_bound = 0);
  static SafeArray OfVariants(std::vector<Variant> items, std::int32_t lower_bound = 0);
  static SafeArray Of(VarType element_type, std::vector<Variant> items, std::int32_t lower_bound = 0);

  VarType ElementType() const noexcept { return type_; }
  bool IsSized() const noexcept { return sized_; }
  std::size_t Count() const noexcept { return items_.size(); }
  // Bounds. Both raise "Subscript out of range" (9) on a not-yet-sized array.
  std::int32_t LBound() const;
  std::int32_t UBound() const;

  // Element at `index` (between the bounds), else raises 9.
  const Variant& At(std::int32_t index) const;
  // Stores `v` at `index`, converted to the element type (13, 6 or 94 when
  // it cannot be); raises 9 outside the bounds.
  void Put(std::int32_t index, Variant v);
  // Resizes (ReDim Preserve): keeps the elements that stay within bounds.
  void Redim(std::int32_t lower_bound, std::size_t count);
  // Appends one element (ReDim Preserve to UBound + 1, then Put).
  void Append(Variant v);

  const std::vector<Variant>& Items() const noexcept { return items_; }

  friend TARVO2_EXPORT bool operator==(const SafeArray&, const SafeArray&);

 private:
  VarType type_;
  bool sized_ = false;
  std::int32_t lower_ = 0;
  std::vector<Variant> items_;
};

// A record (user-defined type) value: a type name and named fields in a
// fixed order. Field names are matched without regard to letter case.
class TARVO2_EXPORT Record {
 public:
  Record() = default;
  Record(String type_name, std::vector<std::pair<String, Variant>> fields)
      : type_name_(std::move(type_name)), fields_(std::move(fields)) {}

  const String& TypeName() const noexcept { return type_name_; }
  const std::vector<std::pair<String, Variant>>& Fields() const noexcept { return fields_; }
  // The field's value; raises 438 when the record has no such field.
  const Variant& Field(StringView name) const;
  // Assigns an existing field; raises 438 when there is none.
  void SetField(StringView name, Variant v);
  bool HasField(StringView name) const noexcept;

  friend TARVO2_EXPORT bool operator==(const Record&, const Record&);

 private:
  String type_name_;
  std::vector<std::pair<String, Variant>> fields_;
};

template <class F>
decltype(auto) Variant::Visit(F&& f) const {
  return std::visit(
      [&f](const auto& x) -> decltype(auto) {
        using T = std::decay_t<decltype(x)>;
        if constexpr (std::is_same_v<T, detail::Box<SafeArray>> || std::is_same_v<T, detail::Box<Record>>)
          return f(*x);
        else
          return f(x);
      },
      v_);
}

template <class T>
const T* Variant::GetIf() const noexcept {
  if constexpr (std::is_same_v<T, SafeArray> || std::is_same_v<T, Record>) {
    auto* box = std::get_if<detail::Box<T>>(&v_);
    return box ? &**box : nullptr;
  } else {
    return std::get_if<T>(&v_);
  }
}

}  // namespace tarvo2

#endif  // TARVO2_VARIANT_H_
