// The library's own errors, the raise switch, and start-up.
//
// A failure that the library detects itself has one of 26 codes. It is
// raised through RaiseLibraryError, which raises number 0x80040000 + code
// with the code's fixed message and the library's name as the source, but
// only while the raise switch of the context (Services) is on. While it is off the call
// does nothing and the calling procedure goes on with its next step; each
// procedure documents what it then does.
#ifndef TARVO2_LIBRARY_ERRORS_H_
#define TARVO2_LIBRARY_ERRORS_H_

#include <cstdint>

#include "tarvo2/error.h"
#include "tarvo2/services.h"

namespace tarvo2 {

// The 26 library error codes.
enum LibraryErrorCode : std::int32_t {
  ErrDirectStringAccess = 10001,
  ErrPageNotFound = 10002,
  ErrFieldNotFound = 10003,
  ErrBadDb = 10004,
  ErrBadKey = 10005,
  ErrCantOpenKey = 10006,
  ErrCantReadKey = 10007,
  ErrCantWriteKey = 10008,
  ErrOutOfMemory = 10009,
  ErrArenaTrashed = 10010,
  ErrAccessDenied = 10011,
  ErrInvalidParameters = 10012,
  ErrNoMoreItems = 10013,
  ErrInvalidLineNumber = 10014,
  ErrEncryptionKeyNotSet = 10015,
  ErrIncompatibleVersion = 10016,
  ErrPageNameExists = 10017,
  ErrSinglePageMode = 10018,
  ErrAlreadyBound = 10019,
  ErrBindWhileProtected = 10020,
  ErrProtectWhileBound = 10021,
  ErrZeroLengthFieldName = 10022,
  ErrIllegalCharacters = 10023,
  ErrKeyHasSubkeys = 10024,
  ErrParameterOutOfBounds = 10025,
  ErrObjectInvalidated = 10026,
};

// The automation base of object-defined errors.
inline constexpr std::int32_t kObjectErrorBase = static_cast<std::int32_t>(0x80040000);

// The number a client sees for `code`: 0x80040000 + code (negative).
constexpr std::int32_t LibraryErrorNumber(std::int32_t code) {
  return static_cast<std::int32_t>(0x80040000u + static_cast<std::uint32_t>(code));
}

// The fixed message of a library error number; empty for any other number.
TARVO2_EXPORT String LibraryErrorMessage(std::int32_t number);

// Raises `number` with its fixed message while the raise switch of
// `services` (the context of the object that detected the failure) is on.
// A number outside the table raises `fallback` alone, with the runtime's
// standard description. With a non-empty `source` that text is the origin
// line, else the library's name. With the switch off, returns at once.
// This procedure adds no line to the source chain.
TARVO2_EXPORT void RaiseLibraryError(const Services& services, std::int32_t number, StringView source,
                       std::int32_t fallback);

// Shorthand for RaiseLibraryError(services, LibraryErrorNumber(code), u"", 0).
TARVO2_EXPORT void RaiseLibraryError(const Services& services, LibraryErrorCode code);

// Sets the raise switch of `services`, shared by every object of that
// context (label "SetRaiseErrors"). Every context starts with it on. Reads
// and writes are not synchronised beyond atomicity.
TARVO2_EXPORT void SetRaiseErrors(Services& services, bool raise);
// The same for the default context, whose switch is the library-wide one.
TARVO2_EXPORT void SetRaiseErrors(bool raise);
TARVO2_EXPORT bool RaiseErrorsEnabled();

}  // namespace tarvo2

#endif  // TARVO2_LIBRARY_ERRORS_H_
