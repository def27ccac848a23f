// Errors as clients receive them, and the standard handler.
//
// Every failure reaches a client as a tarvo2::Error exception carrying the
// five fields of an automation error. Source is a chain of lines separated by
// CR LF: the origin first, then one line per procedure the error passed
// through, innermost first.
#ifndef TARVO2_ERROR_H_
#define TARVO2_ERROR_H_

#include <cstdint>
#include <exception>
#include <string>
#include <utility>

#include "tarvo2/export.h"
#include "tarvo2/object.h"

namespace tarvo2 {

// The library's own name: the origin line of the errors it raises.
inline constexpr char16_t kLibraryName[] = u"Tarvo2";

// Runtime error numbers used by the library.
namespace err {
inline constexpr std::int32_t kInvalidProcedureCall = 5;
inline constexpr std::int32_t kOverflow = 6;
inline constexpr std::int32_t kOutOfMemory = 7;
inline constexpr std::int32_t kSubscriptOutOfRange = 9;
inline constexpr std::int32_t kTypeMismatch = 13;
inline constexpr std::int32_t kInternalError = 51;
inline constexpr std::int32_t kBadFileNameOrNumber = 52;
inline constexpr std::int32_t kFileNotFound = 53;
inline constexpr std::int32_t kDeviceIOError = 57;
inline constexpr std::int32_t kFileAlreadyExists = 58;
inline constexpr std::int32_t kDiskFull = 61;
inline constexpr std::int32_t kTooManyFiles = 67;
inline constexpr std::int32_t kPermissionDenied = 70;
inline constexpr std::int32_t kPathFileAccessError = 75;
inline constexpr std::int32_t kPathNotFound = 76;
inline constexpr std::int32_t kObjectNotSet = 91;
inline constexpr std::int32_t kInvalidUseOfNull = 94;
inline constexpr std::int32_t kObjectRequired = 424;
inline constexpr std::int32_t kCantCreateObject = 429;
inline constexpr std::int32_t kNotSupported = 438;
inline constexpr std::int32_t kNamedArgumentNotFound = 448;
inline constexpr std::int32_t kArgumentNotOptional = 449;
inline constexpr std::int32_t kWrongArgumentCount = 450;
}  // namespace err

// The runtime's standard description of `number`: "Type mismatch" for 13,
// and so on; "Application-defined or object-defined error" for a number the
// runtime does not know.
TARVO2_EXPORT String StandardDescription(std::int32_t number);

class TARVO2_EXPORT Error : public std::exception {
 public:
  Error(std::int32_t number, String source, String description, String help_file = {},
        std::int32_t help_context = 0);

  std::int32_t Number() const noexcept { return number_; }
  const String& Source() const noexcept { return source_; }
  const String& Description() const noexcept { return description_; }
  const String& HelpFile() const noexcept { return help_file_; }
  std::int32_t HelpContext() const noexcept { return help_context_; }

  // Appends CR LF and `label` to the source chain.
  void AppendSource(StringView label);

  // UTF-8 "number: description [source lines joined by ' <- ']".
  const char* what() const noexcept override;

 private:
  std::int32_t number_;
  String source_;
  String description_;
  String help_file_;
  std::int32_t help_context_;
  mutable std::string what_;
};

// Raises the runtime error `number` with its standard description and the
// library's name as source.
[[noreturn]] TARVO2_EXPORT void RaiseRuntimeError(std::int32_t number);

// Converts the exception in flight (inside a catch block) to an Error:
// Error itself is returned as is; std::bad_alloc becomes 7 "Out of memory";
// any other exception becomes 51 "Internal error" with its text.
TARVO2_EXPORT Error CurrentError();

// The standard handler. Runs `body`; an error that ends it is raised again
// to the caller with `label` ("Class.Procedure", "Class.Property (Let)", or a
// module procedure's bare name) appended to its source chain. Every
// procedure of the library calls it the same way:
//
//   bool KivStorageString::SetValue(...) {
//     return Guard(u"KivStorageString.SetValue", [&] { ... return true; });
//   }
template <class F>
decltype(auto) Guard(StringView label, F&& body) {
  try {
    return std::forward<F>(body)();
  } catch (...) {
    Error e = CurrentError();
    e.AppendSource(label);
    throw e;
  }
}

// Resume-next mode: runs one step and discards any error it raises, so the
// caller goes on with its next step. Returns true when the step completed.
template <class F>
bool ResumeNext(F&& step) noexcept {
  try {
    std::forward<F>(step)();
    return true;
  } catch (...) {
    return false;
  }
}

}  // namespace tarvo2

#endif  // TARVO2_ERROR_H_
