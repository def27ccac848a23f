// KivStorageString: the default property (write), files, the version report
// and the common interface.
#include "tarvo2/codec.h"
#include "tarvo2/codepage.h"
#include "tarvo2/file_system.h"
#include "tarvo2/import.h"
#include "tarvo2/library_errors.h"
#include "tarvo2/storage_string.h"

namespace tarvo2 {
namespace {

void RaiseFileError(const FileStatus& status) {
  if (!status.ok()) RaiseRuntimeError(status.error_number());
}

}  // namespace

void KivStorageString::put_Value(const Variant& v) {
  Guard(u"KivStorageString.Value (Let)", [&] {
    if (protect_) RaiseLibraryError(*services_, ErrDirectStringAccess);
    if (ImportIfStore(*services_, *this, v)) {
      UpdateBoundObject();
      return;
    }
    String text = ToString(v);
    CurrentText() = std::move(text);
    UpdateBoundObject();
  });
}

Variant KivStorageString::Load(const String& sFileName, bool bAppend) {
  return Guard(u"KivStorageString.Load", [&] {
    bool load = true;
    if (protect_) {
      RaiseLibraryError(*services_, ErrDirectStringAccess);
      load = false;
    }
    if (load && !PathExists(*services_, sFileName)) {
      RaiseLibraryError(*services_, 0, u"", err::kFileNotFound);
      load = false;
    }
    if (load) {
      std::string bytes;
      RaiseFileError(services_->file_system()->ReadFile(ToUtf8(sFileName), &bytes));
      // The whole file is in memory: only now does the page change. The
      // bytes are widened straight into the page's own buffer.
      String& page = CurrentText();
      const std::uint32_t cp = services_->code_page();
      if (cp != kCodePage1252) {
        String text = FromCodePage(bytes, cp);
        if (bAppend) page += text; else page = std::move(text);
      } else if (!bAppend && page.capacity() < bytes.size()) {
        page = FromAnsi(bytes);  // a bigger buffer anyway: the old text need not be copied
      } else {
        const std::size_t keep = bAppend ? page.size() : 0;
        page.resize(keep + bytes.size());
        char16_t* out = page.data() + keep;
        for (std::size_t i = 0; i < bytes.size(); ++i)
          out[i] = AnsiByteToChar(static_cast<unsigned char>(bytes[i]));
      }
    }
    UpdateBoundObject();
    return Variant();
  });
}

Variant KivStorageString::Save(const String& sFileName, bool bAppend) {
  return Guard(u"KivStorageString.Save", [&] {
    if (sFileName.empty()) RaiseRuntimeError(err::kBadFileNameOrNumber);
    const std::string path = ToUtf8(sFileName);
    const std::string bytes = ToCodePage(CurrentText(), services_->code_page());
    const std::shared_ptr<FileSystem> fs = services_->file_system();
    // Without append the new content replaces the file in one step (a
    // temporary file renamed over it), so a failure leaves the old file.
    RaiseFileError(bAppend ? fs->AppendFile(path, bytes) : fs->ReplaceFileAtomically(path, bytes));
    return Variant();
  });
}

String KivStorageString::Version(bool bShow) {
  return Guard(u"KivStorageString.Version", [&] { return VersionReport(*services_, u"KivStorageString", bShow); });
}

void KivStorageString::TarvoStdInterface_put_Path(const String&) {
  Guard(u"KivStorageString.TarvoStdInterface_Path (Let)", [] {});
}

String KivStorageString::TarvoStdInterface_get_Path() {
  return Guard(u"KivStorageString.TarvoStdInterface_Path (Get)", [] { return String(); });
}

void KivStorageString::TarvoStdInterface_put_Section(const String& sSection) {
  Guard(u"KivStorageString.TarvoStdInterface_Section (Let)", [&] {
    if (sSection.empty()) return;
    const std::int32_t count = get_PageCount();
    for (std::int32_t i = 0; i < count; ++i) {
      if (page_names_[i] == sSection) {
        put_Page(Variant(i + 1));
        return;
      }
    }
    AddPage(sSection, true);
  });
}

String KivStorageString::TarvoStdInterface_get_Section() {
  return Guard(u"KivStorageString.TarvoStdInterface_Section (Get)", [&] { return get_PageName(); });
}

bool KivStorageString::TarvoStdInterface_SetValue(const String& sFieldName, const Variant& vValue,
                                                  const String& sDelimiter) {
  return Guard(u"KivStorageString.TarvoStdInterface_SetValue",
               [&] { return SetValue(sFieldName, vValue, sDelimiter); });
}

Variant KivStorageString::TarvoStdInterface_GetValue(const String& sFieldName, const String& sDelimiter) {
  return Guard(u"KivStorageString.TarvoStdInterface_GetValue",
               [&] { return GetValue(sFieldName, sDelimiter, true, true, Variant(String())); });
}

Variant KivStorageString::TarvoStdInterface_Version(bool bShow) {
  return Guard(u"KivStorageString.TarvoStdInterface_Version (Get)", [&] { return Variant(Version(bShow)); });
}

}  // namespace tarvo2
