#include "tarvo2/variant.h"

#include "tarvo2/convert.h"
#include "tarvo2/error.h"

namespace tarvo2 {

Variant::Variant(SafeArray a) : v_(detail::Box<SafeArray>(std::move(a))) {}
Variant::Variant(Record r) : v_(detail::Box<Record>(std::move(r))) {}

namespace {

template <class T, class... U>
inline constexpr bool kIsOneOf = (std::is_same_v<T, U> || ...);

}  // namespace

VarType Variant::Type() const noexcept {
  return Visit([](const auto& x) -> VarType {
    using T = std::decay_t<decltype(x)>;
    if constexpr (std::is_same_v<T, std::monostate>) return VarType::kEmpty;
    else if constexpr (std::is_same_v<T, NullValue>) return VarType::kNull;
    else if constexpr (std::is_same_v<T, bool>) return VarType::kBoolean;
    else if constexpr (std::is_same_v<T, std::uint8_t>) return VarType::kByte;
    else if constexpr (std::is_same_v<T, std::int16_t>) return VarType::kInteger;
    else if constexpr (std::is_same_v<T, std::int32_t>) return VarType::kLong;
    else if constexpr (std::is_same_v<T, float>) return VarType::kSingle;
    else if constexpr (std::is_same_v<T, double>) return VarType::kDouble;
    else if constexpr (std::is_same_v<T, Currency>) return VarType::kCurrency;
    else if constexpr (std::is_same_v<T, Date>) return VarType::kDate;
    else if constexpr (std::is_same_v<T, String>) return VarType::kString;
    else if constexpr (std::is_same_v<T, Ref<Object>>) return VarType::kObject;
    else if constexpr (std::is_same_v<T, ErrorValue>) return VarType::kError;
    else if constexpr (std::is_same_v<T, SafeArray>) return ArrayOf(x.ElementType());
    else {
      static_assert(std::is_same_v<T, Record>, "every alternative needs its type tag");
      return VarType::kRecord;
    }
  });
}

VarType Variant::ElementType() const noexcept {
  if (const SafeArray* a = GetIf<SafeArray>()) return a->ElementType();
  return VarType::kEmpty;
}

bool Variant::IsNumber() const noexcept {
  return Visit([](const auto& x) {
    using T = std::decay_t<decltype(x)>;
    return kIsOneOf<T, std::uint8_t, std::int16_t, std::int32_t, float, double, Currency>;
  });
}

bool Variant::AsBool() const {
  if (auto* p = std::get_if<bool>(&v_)) return *p;
  RaiseRuntimeError(err::kTypeMismatch);
}
std::int32_t Variant::AsLong() const {
  if (auto* p = std::get_if<std::int32_t>(&v_)) return *p;
  RaiseRuntimeError(err::kTypeMismatch);
}
double Variant::AsDouble() const {
  if (auto* p = std::get_if<double>(&v_)) return *p;
  RaiseRuntimeError(err::kTypeMismatch);
}
const String& Variant::AsString() const {
  if (auto* p = std::get_if<String>(&v_)) return *p;
  RaiseRuntimeError(err::kTypeMismatch);
}
const Ref<Object>& Variant::AsObject() const {
  if (auto* p = std::get_if<Ref<Object>>(&v_)) return *p;
  RaiseRuntimeError(err::kObjectRequired);
}
ErrorValue Variant::AsError() const {
  if (auto* p = std::get_if<ErrorValue>(&v_)) return *p;
  RaiseRuntimeError(err::kTypeMismatch);
}
const SafeArray& Variant::AsArray() const {
  if (auto* p = std::get_if<detail::Box<SafeArray>>(&v_)) return **p;
  RaiseRuntimeError(err::kTypeMismatch);
}
SafeArray& Variant::AsArray() {
  if (auto* p = std::get_if<detail::Box<SafeArray>>(&v_)) return **p;
  RaiseRuntimeError(err::kTypeMismatch);
}
const Record& Variant::AsRecord() const {
  if (auto* p = std::get_if<detail::Box<Record>>(&v_)) return **p;
  RaiseRuntimeError(err::kTypeMismatch);
}
Record& Variant::AsRecord() {
  if (auto* p = std::get_if<detail::Box<Record>>(&v_)) return **p;
  RaiseRuntimeError(err::kTypeMismatch);
}

bool operator==(const Variant& a, const Variant& b) {
  if (a.v_.index() != b.v_.index()) return false;
  if (a.IsArray()) return a.AsArray() == b.AsArray();
  if (a.IsRecord()) return a.AsRecord() == b.AsRecord();
  if (a.IsObject()) return a.AsObject().get() == b.AsObject().get();
  return std::visit(
      [&](const auto& x) -> bool {
        using T = std::decay_t<decltype(x)>;
        if constexpr (std::is_same_v<T, detail::Box<SafeArray>> || std::is_same_v<T, detail::Box<Record>> ||
                      std::is_same_v<T, Ref<Object>>) {
          return false;  // handled above
        } else {
          return x == std::get<T>(b.v_);
        }
      },
      a.v_);
}

// ---------------------------------------------------------------------------

SafeArray::SafeArray(VarType element_type) : type_(element_type) {}

SafeArray::SafeArray(VarType element_type, std::int32_t lower_bound, std::size_t count)
    : type_(element_type), sized_(true), lower_(lower_bound) {
  Redim(lower_bound, count);
}

SafeArray SafeArray::OfStrings(std::vector<String> items, std::int32_t lower_bound) {
  SafeArray a(VarType::kString);
  a.sized_ = true;
  a.lower_ = lower_bound;
  a.items_.reserve(items.size());
  for (auto& s : items) a.items_.emplace_back(std::move(s));
  return a;
}

SafeArray SafeArray::OfVariants(std::vector<Variant> items, std::int32_t lower_bound) {
  SafeArray a(VarType::kVariant);
  a.sized_ = true;
  a.lower_ = lower_bound;
  a.items_ = std::move(items);
  return a;
}

SafeArray SafeArray::Of(VarType element_type, std::vector<Variant> items, std::int32_t lower_bound) {
  SafeArray a(element_type);
  a.sized_ = true;
  a.lower_ = lower_bound;
  a.items_.reserve(items.size());
  for (auto& v : items)
    a.items_.push_back(element_type == VarType::kVariant ? std::move(v) : ConvertTo(v, element_type));
  return a;
}

std::int32_t SafeArray::LBound() const {
  if (!sized_) RaiseRuntimeError(err::kSubscriptOutOfRange);
  return lower_;
}

std::int32_t SafeArray::UBound() const {
  if (!sized_) RaiseRuntimeError(err::kSubscriptOutOfRange);
  return static_cast<std::int32_t>(static_cast<std::int64_t>(lower_) +
                                   static_cast<std::int64_t>(items_.size()) - 1);
}

const Variant& SafeArray::At(std::int32_t index) const {
  std::int64_t off = static_cast<std::int64_t>(index) - lower_;
  if (!sized_ || off < 0 || off >= static_cast<std::int64_t>(items_.size()))
    RaiseRuntimeError(err::kSubscriptOutOfRange);
  return items_[static_cast<std::size_t>(off)];
}

void SafeArray::Put(std::int32_t index, Variant v) {
  std::int64_t off = static_cast<std::int64_t>(index) - lower_;
  if (!sized_ || off < 0 || off >= static_cast<std::int64_t>(items_.size()))
    RaiseRuntimeError(err::kSubscriptOutOfRange);
  items_[static_cast<std::size_t>(off)] =
      type_ == VarType::kVariant ? std::move(v) : ConvertTo(v, type_);
}

static Variant InitialValue(VarType t) {
  switch (t) {
    case VarType::kVariant: return Variant();
    case VarType::kObject: return Variant::Nothing();
    case VarType::kString: return Variant(String());
    case VarType::kRecord: return Variant(Record());
    default: return ConvertTo(Variant(std::int32_t{0}), t);
  }
}

void SafeArray::Redim(std::int32_t lower_bound, std::size_t count) {
  sized_ = true;
  lower_ = lower_bound;
  if (count < items_.size()) {
    items_.resize(count);
  } else {
    Variant init = InitialValue(type_);
    items_.resize(count, init);
  }
}

void SafeArray::Append(Variant v) {
  if (!sized_) {
    sized_ = true;
    lower_ = 0;
  }
  items_.push_back(type_ == VarType::kVariant ? std::move(v) : ConvertTo(v, type_));
}

bool operator==(const SafeArray& a, const SafeArray& b) {
  return a.type_ == b.type_ && a.sized_ == b.sized_ && a.lower_ == b.lower_ && a.items_ == b.items_;
}

// ---------------------------------------------------------------------------

const Variant& Record::Field(StringView name) const {
  for (const auto& [n, v] : fields_)
    if (EqualsNoCase(n, name)) return v;
  RaiseRuntimeError(err::kNotSupported);
}

void Record::SetField(StringView name, Variant v) {
  for (auto& [n, value] : fields_)
    if (EqualsNoCase(n, name)) {
      value = std::move(v);
      return;
    }
  RaiseRuntimeError(err::kNotSupported);
}

bool Record::HasField(StringView name) const noexcept {
  for (const auto& f : fields_)
    if (EqualsNoCase(f.first, name)) return true;
  return false;
}

bool operator==(const Record& a, const Record& b) {
  return a.type_name_ == b.type_name_ && a.fields_ == b.fields_;
}

}  // namespace tarvo2
