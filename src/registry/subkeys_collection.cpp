// SubKeysCollection: the subkeys of one key as KivRegistryKey objects.
#include <cstring>
#include <utility>

#include "registry/registry_access.h"
#include "tarvo2/codepage.h"
#include "tarvo2/convert.h"
#include "tarvo2/library_errors.h"
#include "tarvo2/registry_key.h"

namespace tarvo2 {

using registry_internal::kAccessAll;
using registry_internal::ScopedKey;
using registry_internal::ToStoreName;

SubKeysCollection::SubKeysCollection(std::shared_ptr<Services> services)
    : services_(Services::OrDefault(std::move(services))),
      self_token_(std::make_shared<SubKeysCollection*>(this)) {}

// The entries are released with the list; entries a client still holds see
// their owner collection gone (the token dies with this object).
SubKeysCollection::~SubKeysCollection() = default;

Ref<SubKeysCollection> SubKeysCollection::Create(std::shared_ptr<Services> services) {
  return Ref<SubKeysCollection>(new SubKeysCollection(std::move(services)));
}

const TypeInfo& SubKeysCollection::Info() {
  using C = SubKeysCollection;
  static const TypeInfo info = [] {
    TypeInfo t = ClassBuilder<C>(u"SubKeysCollection", /*creatable=*/false)
                     .Method(u"Refresh", &C::Refresh, u"")
                     .Method(u"Add", &C::Add, u"", {P(u"sSubKeyName")})
                     .Get(u"Item", &C::get_Item, u"", {P(u"vIndexKey")})
                     .Get(u"Count", &C::get_Count, u"")
                     .Get(u"NewEnum", &C::NewEnum, u"")
                     .Hidden()
                     .Build();
    // Item is the default member.
    for (auto& m : t.members)
      if (m.name == u"Item") m.id = kDispIdValue;
    return t;
  }();
  return info;
}

void SubKeysCollection::DetachParent(const KivRegistryKey& parent) {
  if (parent_ != &parent) return;
  parent_ = nullptr;
  has_location_ = !parent.invalidated_;
  detached_root_ = parent.root_;
  detached_key_name_ = parent.key_name_;
}

bool SubKeysCollection::ParentLocation(RegRootKeyEnum* root, String* key_name) const {
  if (parent_ != nullptr) {
    // An invalidated parent must not lead to its root key.
    if (parent_->invalidated_) return false;
    *root = parent_->root_;
    *key_name = parent_->key_name_;
    return true;
  }
  if (!has_location_) return false;
  *root = detached_root_;
  *key_name = detached_key_name_;
  return true;
}

std::size_t SubKeysCollection::IndexOf(const Variant& index_key) const {
  if (index_key.IsString()) {
    const String& name = index_key.AsString();
    for (std::size_t i = 0; i < entries_.size(); ++i)
      if (EqualsNoCase(entries_[i].name, name)) return i;
    RaiseRuntimeError(err::kInvalidProcedureCall);
  }
  if (index_key.IsNumber() || index_key.IsBoolean()) {
    std::int32_t position = ToLong(index_key);
    if (position < 1 || static_cast<std::size_t>(position) > entries_.size())
      RaiseRuntimeError(err::kSubscriptOutOfRange);
    return static_cast<std::size_t>(position - 1);
  }
  RaiseRuntimeError(err::kTypeMismatch);
}

void SubKeysCollection::LoadSubKeys(KivRegistryKey* parent) {
  Guard(u"SubKeysCollection.LoadSubKeys", [&] {
    std::vector<Entry> old = std::exchange(entries_, {});
    if (parent != nullptr) {
      parent_ = parent;
      has_location_ = true;
    }
    RegRootKeyEnum root;
    String key_name;
    if (!ParentLocation(&root, &key_name)) return;
    std::string path;
    if (!ToStoreName(key_name, services_->code_page(), &path)) return;
    ScopedKey key(services_->registry_store());
    // Failures are not recorded: a key that cannot be opened lists nothing.
    key.store().OpenKey(static_cast<RegKey>(root), path.c_str(), kAccessAll, key.out());
    char name[256];
    for (std::uint32_t index = 0;; ++index) {
      if (key.store().EnumKey(key.get(), index, name, sizeof name) != kErrorSuccess) break;
      Add(FromCodePage(std::string_view(name, strnlen(name, sizeof name)), services_->code_page()));
    }
  });
}

Ref<KivRegistryKey> SubKeysCollection::Add(const String& sSubKeyName) {
  // Every step discards its failure and the next one runs; nothing leaves.
  Ref<KivRegistryKey> result;
  String name = sSubKeyName;
  ResumeNext([&] { result = entries_.at(IndexOf(Variant(name))).key; });
  if (result) return result;
  if (name.empty() || name.find(u'\\') != String::npos) return result;
  RegRootKeyEnum root;
  String parent_name;
  if (!ParentLocation(&root, &parent_name)) return result;
  Ref<KivRegistryKey> key = KivRegistryKey::Create(services_);
  ResumeNext([&] { key->put_RootKey(root); });
  ResumeNext([&] { key->put_KeyName(parent_name + u"\\" + name); });
  ResumeNext([&] { key->putref_OwnerCollection(this); });
  ResumeNext([&] { entries_.push_back(Entry{name, key}); });
  ResumeNext([&] { result = entries_.at(IndexOf(Variant(name))).key; });
  return result;
}

Ref<KivRegistryKey> SubKeysCollection::get_Item(const Variant& vIndexKey) {
  return Guard(u"SubKeysCollection.Item (Get)", [&] { return entries_[IndexOf(vIndexKey)].key; });
}

std::int32_t SubKeysCollection::get_Count() {
  return Guard(u"SubKeysCollection.Count (Get)", [&] { return static_cast<std::int32_t>(entries_.size()); });
}

Ref<Enumerator> SubKeysCollection::NewEnum() {
  return Guard(u"SubKeysCollection.NewEnum (Get)", [&] {
    std::vector<Variant> items;
    items.reserve(entries_.size());
    for (const auto& e : entries_) items.emplace_back(e.key);
    return Ref<Enumerator>(MakeRef<ListEnumerator>(std::move(items)));
  });
}

void SubKeysCollection::Refresh() {
  Guard(u"SubKeysCollection.Refresh", [&] {
    for (const auto& e : entries_) e.key->put_Invalidated(true);
    LoadSubKeys(nullptr);
  });
}

void SubKeysCollection::Clear() {
  Guard(u"SubKeysCollection.Clear", [&] {
    std::vector<Entry> old = std::exchange(entries_, {});
  });
}

void SubKeysCollection::RemoveEntry(const KivRegistryKey* key) {
  Guard(u"SubKeysCollection.Remove", [&] {
    for (std::size_t i = 0; i < entries_.size(); ++i) {
      if (entries_[i].key.get() == key) {
        Entry removed = std::move(entries_[i]);
        entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(i));
        return;
      }
    }
  });
}

}  // namespace tarvo2
