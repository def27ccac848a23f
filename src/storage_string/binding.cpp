// KivStorageString: binding to a property of another object, and protected
// mode.
#include "tarvo2/library_errors.h"
#include "tarvo2/storage_string.h"

namespace tarvo2 {
namespace {

// The property that mirrors the page in `mode` (1, 3, 4, 5); the default
// property (mode 2) is addressed by dispatch identity instead.
StringView MirroredProperty(std::int32_t mode) {
  switch (mode) {
    case tarvo_BindModeTag: return u"Tag";
    case tarvo_BindModeValue: return u"Value";
    case tarvo_BindModeCaption: return u"Caption";
    case tarvo_BindModeText: return u"Text";
    default: return StringView();
  }
}

// Marks a pull or push as under way for as long as it runs.
class InProgress {
 public:
  explicit InProgress(bool& flag) : flag_(flag) { flag_ = true; }
  ~InProgress() { flag_ = false; }
  InProgress(const InProgress&) = delete;
  InProgress& operator=(const InProgress&) = delete;

 private:
  bool& flag_;
};

// The storage string behind `o`: the object itself, or the store behind a
// view of it under another interface; nullptr for anything else.
KivStorageString* StoreBehind(const Ref<Object>& o) {
  if (!o) return nullptr;
  Ref<Object> own = o->QueryInterface(u"KivStorageString");
  return dynamic_cast<KivStorageString*>(own.get());
}

}  // namespace

void KivStorageString::UpdateFromBoundObject() {
  Guard(u"KivStorageString.UpdateFromBoundObject", [&] {
    if (!MirrorsProperty() || pulling_) return;
    InProgress busy(pulling_);
    Ref<Object> target = bound_;  // the call may drop our reference
    Variant value;
    if (bind_mode_ == tarvo_BindModeDefaultProperty) {
      CallArgs none;
      value = target->Invoke(kDispIdValue, InvokeKind::kGet, none);
    } else {
      value = GetProperty(Variant(target), MirroredProperty(bind_mode_));
    }
    String text = ToString(value);
    CurrentText() = std::move(text);
  });
}

void KivStorageString::UpdateBoundObject() {
  Guard(u"KivStorageString.UpdateBoundObject", [&] {
    if (!MirrorsProperty() || pushing_) return;
    InProgress busy(pushing_);
    Ref<Object> target = bound_;
    Variant text(CurrentText());
    if (bind_mode_ == tarvo_BindModeDefaultProperty) {
      CallArgs args{Arg(std::move(text))};
      target->Invoke(kDispIdValue, InvokeKind::kLet, args);
    } else {
      LetProperty(Variant(target), MirroredProperty(bind_mode_), std::move(text));
    }
  });
}

BindModeEnum KivStorageString::get_BindMode() {
  return Guard(u"KivStorageString.BindMode (Get)", [&] { return static_cast<BindModeEnum>(bind_mode_); });
}

void KivStorageString::put_BindMode(BindModeEnum eNewValue) {
  Guard(u"KivStorageString.BindMode (Let)", [&] {
    const std::int32_t mode = eNewValue;
    if (protect_ && mode != tarvo_BindModeNone) RaiseLibraryError(*services_, ErrBindWhileProtected);
    Ref<Object> released;  // let go of the object only once the state is consistent
    if (mode != tarvo_BindModeNone) {
      if (bind_mode_ == tarvo_BindModeNone) saved_multi_page_ = multi_page_;
      multi_page_ = false;
    } else {
      released = std::move(bound_);
      if (bind_mode_ != tarvo_BindModeNone) multi_page_ = saved_multi_page_;
    }
    bind_mode_ = mode;
  });
}

Ref<Object> KivStorageString::get_BoundObject() {
  return Guard(u"KivStorageString.BoundTagObject (Get)", [&] { return bound_; });
}

void KivStorageString::putref_BoundObject(Ref<Object> oNewValue) {
  Guard(u"KivStorageString.BoundTagObject (Set)", [&] {
    if (!oNewValue) {
      put_BindMode(tarvo_BindModeNone);
      return;
    }
    KivStorageString* other = StoreBehind(oNewValue);
    if (other == this) {
      // Mirroring a store into itself does nothing useful and would keep it
      // alive through its own reference: always refused.
      RaiseLibraryError(*services_, ErrAlreadyBound);
      return;
    }
    if (other && StoreBehind(other->bound_) == this) RaiseLibraryError(*services_, ErrAlreadyBound);

    const std::int32_t old_mode = bind_mode_;
    const bool old_multi_page = multi_page_;
    const bool old_saved = saved_multi_page_;
    Ref<Object> old_object = bound_;
    if (bind_mode_ == tarvo_BindModeNone) put_BindMode(tarvo_BindModeDefaultProperty);
    bound_ = std::move(oNewValue);
    try {
      UpdateFromBoundObject();
    } catch (...) {
      // An object whose property cannot be read is not bound.
      bound_ = std::move(old_object);
      bind_mode_ = old_mode;
      multi_page_ = old_multi_page;
      saved_multi_page_ = old_saved;
      throw;
    }
  });
}

bool KivStorageString::get_Protect() {
  return Guard(u"KivStorageString.Protect (Get)", [&] { return protect_; });
}

void KivStorageString::put_Protect(bool bNewValue) {
  Guard(u"KivStorageString.Protect (Let)", [&] {
    if (bind_mode_ != tarvo_BindModeNone) RaiseLibraryError(*services_, ErrProtectWhileBound);
    protect_ = bNewValue;
  });
}

}  // namespace tarvo2
