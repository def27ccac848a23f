#include "tarvo2/library_errors.h"

#include <array>

namespace tarvo2 {
namespace {

constexpr std::array<const char16_t*, 26> kMessages = {
    u"Direct String Access Is Prohibited",
    u"Page Not Found",
    u"Field Not Found",
    u"BADDB",
    u"Bad Key",
    u"Can't Open Key",
    u"Can't Read Key",
    u"Can't Write Key",
    u"Out Of Memory",
    u"Arena Trashed",
    u"Access Denied",
    u"Invalid Parameters",
    u"No More Items",
    u"Invalid Line Number",
    u"Encryption Key Not Set",
    u"The Object Passed Is An Incompatible Version",
    u"Page Name Already Exists",
    u"Illegal Call In Single Page Mode",
    u"Storage String Is Already Bound",
    u"Can't Bind To Another Object Whilst In Protected Mode",
    u"Can't Enter Protected Mode Whilst Bound To Another Object",
    u"Zero Length Feild Names Are Not Allowed",
    u"Illegal Character(s) Passed",
    u"Can't delete key because it's contains subkeys",
    u"Paramater out of bounds",
    u"Object has been invalidated",
};

}  // namespace

String LibraryErrorMessage(std::int32_t number) {
  std::int64_t index = static_cast<std::int64_t>(number) - LibraryErrorNumber(ErrDirectStringAccess);
  if (index < 0 || index >= static_cast<std::int64_t>(kMessages.size())) return String();
  return kMessages[static_cast<std::size_t>(index)];
}

void RaiseLibraryError(const Services& services, std::int32_t number, StringView source,
                       std::int32_t fallback) {
  if (!services.raise_errors()) return;
  String message = LibraryErrorMessage(number);
  if (!message.empty()) {
    throw Error(number, source.empty() ? String(kLibraryName) : String(source), std::move(message));
  }
  // Raising number 0 is itself an invalid procedure call.
  RaiseRuntimeError(fallback == 0 ? err::kInvalidProcedureCall : fallback);
}

void RaiseLibraryError(const Services& services, LibraryErrorCode code) {
  RaiseLibraryError(services, LibraryErrorNumber(code), u"", 0);
}

void SetRaiseErrors(Services& services, bool raise) {
  Guard(u"SetRaiseErrors", [&] { services.set_raise_errors(raise); });
}

void SetRaiseErrors(bool raise) { SetRaiseErrors(*Services::Default(), raise); }

bool RaiseErrorsEnabled() { return Services::Default()->raise_errors(); }

}  // namespace tarvo2
