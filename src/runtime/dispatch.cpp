#include "tarvo2/dispatch.h"

namespace tarvo2 {

// ---------------------------------------------------------------------------
// Object defaults: everything is answered from the type information.

String Object::ClassName() const { return GetTypeInfo().name; }

DispId Object::GetIdOfName(StringView name) const { return GetTypeInfo().IdOfName(name); }

Ref<Object> Object::QueryInterface(StringView interface_name) {
  return EqualsNoCase(interface_name, ClassName()) ? Ref<Object>(this) : Ref<Object>();
}

namespace {

bool LastArgIsObject(CallArgs& args) {
  return args.size() > 0 && args.ValueAt(args.size() - 1).IsObject();
}

// Which member serves a call of `kind` to `id`: a read may be served by a
// method and a call by a property read; a Let of an object may go to a Set
// accessor and a Set to a Let accessor when the property has only that one.
const MemberInfo* Resolve(const TypeInfo& ti, DispId id, InvokeKind kind, CallArgs& args) {
  switch (kind) {
    case InvokeKind::kGet:
      if (auto* m = ti.Find(id, InvokeKind::kGet)) return m;
      return ti.Find(id, InvokeKind::kMethod);
    case InvokeKind::kMethod:
      if (auto* m = ti.Find(id, InvokeKind::kMethod)) return m;
      return ti.Find(id, InvokeKind::kGet);
    case InvokeKind::kLet:
      if (auto* m = ti.Find(id, InvokeKind::kLet)) return m;
      return LastArgIsObject(args) ? ti.Find(id, InvokeKind::kSet) : nullptr;
    case InvokeKind::kSet:
      if (auto* m = ti.Find(id, InvokeKind::kSet)) return m;
      return ti.Find(id, InvokeKind::kLet);
  }
  return nullptr;
}

}  // namespace

Variant Object::Invoke(DispId id, InvokeKind kind, CallArgs& args) {
  const MemberInfo* m = Resolve(GetTypeInfo(), id, kind, args);
  if (!m) RaiseRuntimeError(err::kNotSupported);
  return InvokeMember(*this, *m, args);
}

// ---------------------------------------------------------------------------

const MemberInfo* TypeInfo::Find(DispId id, InvokeKind kind) const {
  for (const auto& m : members)
    if (m.id == id && m.kind == kind) return &m;
  return nullptr;
}

DispId TypeInfo::IdOfName(StringView name) const {
  for (const auto& m : members)
    if (EqualsNoCase(m.name, name)) return m.id;
  return kDispIdUnknown;
}

const MemberInfo* TypeInfo::FindByName(StringView name, InvokeKind kind) const {
  for (const auto& m : members)
    if (m.kind == kind && EqualsNoCase(m.name, name)) return &m;
  return nullptr;
}

Variant InvokeMember(Object& self, const MemberInfo& member, CallArgs& args) {
  const auto& params = member.params;
  const std::size_t n = params.size();
  const bool is_put = member.kind == InvokeKind::kLet || member.kind == InvokeKind::kSet;

  std::vector<Variant> temps(n);
  std::vector<Variant*> slots(n, nullptr);
  std::vector<bool> filled(n, false);

  auto bind = [&](std::size_t i, Arg& a) {
    Variant& source = a.ref ? *a.ref : a.value;
    if (source.IsMissing() && params[i].optional && !params[i].by_ref) return;  // omitted
    if (params[i].by_ref && a.ref) {
      slots[i] = a.ref;
    } else {
      temps[i] = source;
      slots[i] = &temps[i];
    }
    filled[i] = true;
  };

  auto& items = args.items();
  std::size_t positional_limit = is_put ? (n == 0 ? 0 : n - 1) : n;
  std::size_t pos = 0;
  std::size_t last_positional = items.size();
  if (is_put) {
    // The assigned value is the last positional argument.
    last_positional = items.size();
    while (last_positional > 0 && !items[last_positional - 1].name.empty()) --last_positional;
    if (last_positional == 0 || n == 0) RaiseRuntimeError(err::kWrongArgumentCount);
    bind(n - 1, items[last_positional - 1]);
    if (!filled[n - 1]) {  // an explicitly omitted value is still the value
      temps[n - 1] = items[last_positional - 1].value;
      slots[n - 1] = &temps[n - 1];
      filled[n - 1] = true;
    }
    --last_positional;
  }
  for (std::size_t k = 0; k < items.size(); ++k) {
    if (is_put && k == last_positional) continue;
    Arg& a = items[k];
    if (a.name.empty()) {
      if (pos >= positional_limit) RaiseRuntimeError(err::kWrongArgumentCount);
      bind(pos++, a);
      continue;
    }
    std::size_t i = 0;
    while (i < positional_limit && !EqualsNoCase(params[i].name, a.name)) ++i;
    if (i == positional_limit || slots[i] != nullptr) RaiseRuntimeError(err::kNamedArgumentNotFound);
    bind(i, a);
    if (!filled[i]) slots[i] = &temps[i];  // mark as seen; default applied below
  }
  for (std::size_t i = 0; i < n; ++i) {
    if (filled[i]) continue;
    if (!params[i].optional) RaiseRuntimeError(err::kArgumentNotOptional);
    temps[i] = params[i].default_value ? *params[i].default_value : Variant::Missing();
    slots[i] = &temps[i];
  }
  return member.invoke(self, slots);
}

// ---------------------------------------------------------------------------

Variant Invoke(const Variant& target, StringView name, InvokeKind kind, CallArgs args) {
  if (target.IsRecord()) {
    if (kind != InvokeKind::kGet && kind != InvokeKind::kMethod) RaiseRuntimeError(err::kNotSupported);
    if (args.size() != 0) RaiseRuntimeError(err::kWrongArgumentCount);
    return target.AsRecord().Field(name);
  }
  if (!target.IsObject()) RaiseRuntimeError(err::kObjectRequired);
  const Ref<Object>& obj = target.AsObject();
  if (!obj) RaiseRuntimeError(err::kObjectNotSet);
  Ref<Object> keep = obj;  // the call may drop the caller's last other reference
  DispId id = keep->GetIdOfName(name);
  if (id == kDispIdUnknown) RaiseRuntimeError(err::kNotSupported);
  return keep->Invoke(id, kind, args);
}

void LetProperty(const Variant& target, StringView name, Variant value) {
  Invoke(target, name, InvokeKind::kLet, CallArgs{Arg(std::move(value))});
}

void SetProperty(const Variant& target, StringView name, Variant value) {
  Invoke(target, name, InvokeKind::kSet, CallArgs{Arg(std::move(value))});
}

namespace {

// The object that `v` stands for, whichever of its interfaces `v` holds;
// empty for Nothing.
Ref<Object> Identity(const Variant& v) {
  if (!v.IsObject()) RaiseRuntimeError(err::kObjectRequired);
  const Ref<Object>& obj = v.AsObject();
  if (!obj) return Ref<Object>();
  Ref<Object> own = obj->QueryInterface(obj->ClassName());
  return own ? own : obj;
}

}  // namespace

bool SameObject(const Variant& a, const Variant& b) { return Identity(a) == Identity(b); }

void ForEach(const Variant& collection, const std::function<void(const Variant&)>& fn) {
  if (!collection.IsObject()) RaiseRuntimeError(err::kObjectRequired);
  Ref<Object> obj = collection.AsObject();
  if (!obj) RaiseRuntimeError(err::kObjectNotSet);
  CallArgs none;
  Variant e = obj->Invoke(kDispIdNewEnum, InvokeKind::kGet, none);
  Ref<Enumerator> en = e.IsObject() ? RefCast<Enumerator>(e.AsObject()) : Ref<Enumerator>();
  if (!en) RaiseRuntimeError(err::kNotSupported);
  Variant item;
  while (en->Next(item)) fn(item);
}

const TypeInfo& Enumerator::GetTypeInfo() const {
  static const TypeInfo info = [] {
    TypeInfo t;
    t.name = u"IEnumVARIANT";
    return t;
  }();
  return info;
}

bool ListEnumerator::Next(Variant& out) {
  if (pos_ >= items_.size()) return false;
  out = items_[pos_++];
  return true;
}

// ---------------------------------------------------------------------------

DynamicObject::DynamicObject(String class_name) { info_.name = std::move(class_name); }

DispId DynamicObject::GetIdOfName(StringView name) const {
  if (EqualsNoCase(name, u"Value")) return kDispIdValue;
  for (std::size_t i = 0; i < props_.size(); ++i)
    if (EqualsNoCase(props_[i].first, name)) return static_cast<DispId>(i + 1);
  // Unknown names get an identity so that an assignment can create them.
  auto& self = const_cast<DynamicObject&>(*this);
  for (std::size_t i = 0; i < pending_.size(); ++i)
    if (EqualsNoCase(pending_[i], name)) return static_cast<DispId>(-1000 - static_cast<DispId>(i));
  self.pending_.emplace_back(name);
  return static_cast<DispId>(-1000 - static_cast<DispId>(pending_.size() - 1));
}

Variant DynamicObject::Invoke(DispId id, InvokeKind kind, CallArgs& args) {
  String name;
  if (id == kDispIdValue) {
    name = u"Value";
  } else if (id > 0 && static_cast<std::size_t>(id) <= props_.size()) {
    name = props_[id - 1].first;
  } else if (id <= -1000 && static_cast<std::size_t>(-1000 - id) < pending_.size()) {
    name = pending_[-1000 - id];
  } else {
    RaiseRuntimeError(err::kNotSupported);
  }
  if (kind == InvokeKind::kLet || kind == InvokeKind::kSet) {
    if (args.size() != 1) RaiseRuntimeError(err::kWrongArgumentCount);
    Put(name, args.ValueAt(0));
    return Variant();
  }
  if (args.size() != 0) RaiseRuntimeError(err::kWrongArgumentCount);
  const Variant* v = Find(name);
  if (!v) RaiseRuntimeError(err::kNotSupported);
  return *v;
}

void DynamicObject::Put(StringView name, Variant v) {
  for (auto& [n, value] : props_)
    if (EqualsNoCase(n, name)) {
      value = std::move(v);
      return;
    }
  props_.emplace_back(String(name), std::move(v));
}

const Variant* DynamicObject::Find(StringView name) const {
  for (const auto& [n, value] : props_)
    if (EqualsNoCase(n, name)) return &value;
  return nullptr;
}

}  // namespace tarvo2
