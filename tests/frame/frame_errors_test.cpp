// Library errors, the raise switch, the standard handler's source chain.
#include <gtest/gtest.h>

#include "tarvo2/library_errors.h"
#include "test_util.h"

namespace tarvo2 {
namespace {

TEST(LibraryErrors, EveryCodeHasItsNumberAndMessage) {
  const auto services = Services::New();
  struct Row {
    LibraryErrorCode code;
    std::int32_t number;
    const char16_t* message;
  } rows[] = {
      {ErrDirectStringAccess, -2147211503, u"Direct String Access Is Prohibited"},
      {ErrPageNotFound, -2147211502, u"Page Not Found"},
      {ErrFieldNotFound, -2147211501, u"Field Not Found"},
      {ErrBadDb, -2147211500, u"BADDB"},
      {ErrBadKey, -2147211499, u"Bad Key"},
      {ErrCantOpenKey, -2147211498, u"Can't Open Key"},
      {ErrCantReadKey, -2147211497, u"Can't Read Key"},
      {ErrCantWriteKey, -2147211496, u"Can't Write Key"},
      {ErrOutOfMemory, -2147211495, u"Out Of Memory"},
      {ErrArenaTrashed, -2147211494, u"Arena Trashed"},
      {ErrAccessDenied, -2147211493, u"Access Denied"},
      {ErrInvalidParameters, -2147211492, u"Invalid Parameters"},
      {ErrNoMoreItems, -2147211491, u"No More Items"},
      {ErrInvalidLineNumber, -2147211490, u"Invalid Line Number"},
      {ErrEncryptionKeyNotSet, -2147211489, u"Encryption Key Not Set"},
      {ErrIncompatibleVersion, -2147211488, u"The Object Passed Is An Incompatible Version"},
      {ErrPageNameExists, -2147211487, u"Page Name Already Exists"},
      {ErrSinglePageMode, -2147211486, u"Illegal Call In Single Page Mode"},
      {ErrAlreadyBound, -2147211485, u"Storage String Is Already Bound"},
      {ErrBindWhileProtected, -2147211484, u"Can't Bind To Another Object Whilst In Protected Mode"},
      {ErrProtectWhileBound, -2147211483, u"Can't Enter Protected Mode Whilst Bound To Another Object"},
      {ErrZeroLengthFieldName, -2147211482, u"Zero Length Feild Names Are Not Allowed"},
      {ErrIllegalCharacters, -2147211481, u"Illegal Character(s) Passed"},
      {ErrKeyHasSubkeys, -2147211480, u"Can't delete key because it's contains subkeys"},
      {ErrParameterOutOfBounds, -2147211479, u"Paramater out of bounds"},
      {ErrObjectInvalidated, -2147211478, u"Object has been invalidated"},
  };
  for (const auto& r : rows) {
    SCOPED_TRACE(r.code);
    EXPECT_EQ(LibraryErrorNumber(r.code), r.number);
    EXPECT_ERROR(RaiseLibraryError(*services, r.code), r.number, r.message, u"Tarvo2");
  }
  EXPECT_EQ(LibraryErrorMessage(LibraryErrorNumber(10027)), u"");
  EXPECT_EQ(LibraryErrorMessage(LibraryErrorNumber(10000)), u"");
}

TEST(LibraryErrors, FallbackAndExplicitSource) {
  const auto services = Services::New();
  EXPECT_ERROR(RaiseLibraryError(*services, 0, u"", 53), 53, u"File not found", u"Tarvo2");
  EXPECT_ERROR(RaiseLibraryError(*services, 0, u"", 13), 13, u"Type mismatch", u"Tarvo2");
  EXPECT_ERROR(RaiseLibraryError(*services, LibraryErrorNumber(ErrBadKey), u"Origin", 0), LibraryErrorNumber(ErrBadKey),
               u"Bad Key", u"Origin");
}

TEST(LibraryErrors, SwitchOffSilencesOnlyLibraryErrors) {
  const auto services = Services::New();
  EXPECT_TRUE(services->raise_errors());  // on from the start
  SetRaiseErrors(*services, false);
  EXPECT_NO_THROW(RaiseLibraryError(*services, ErrFieldNotFound));
  EXPECT_NO_THROW(RaiseLibraryError(*services, 0, u"", 53));
  EXPECT_ERROR_NUMBER(RaiseRuntimeError(13), 13);  // the runtime's own errors still pass
  EXPECT_ERROR_NUMBER(RaiseLibraryError(*Services::Default(), ErrFieldNotFound),
                      LibraryErrorNumber(ErrFieldNotFound));  // other contexts keep theirs
  EXPECT_TRUE(RaiseErrorsEnabled());
  SetRaiseErrors(*services, true);
  EXPECT_ERROR_NUMBER(RaiseLibraryError(*services, ErrFieldNotFound), LibraryErrorNumber(ErrFieldNotFound));
}

// Each handler adds its line, innermost first; help file and context pass on.
TEST(StandardHandler, BuildsTheSourceChainInnermostFirst) {
  const auto services = Services::New();
  auto inner = [&] {
    Guard(u"KivStorageString.ValidateString", [&] { RaiseLibraryError(*services, ErrIllegalCharacters); });
  };
  auto outer = [&] { Guard(u"KivStorageString.SetValue", inner); };
  EXPECT_ERROR(outer(), LibraryErrorNumber(ErrIllegalCharacters), u"Illegal Character(s) Passed",
               u"Tarvo2\r\nKivStorageString.ValidateString\r\nKivStorageString.SetValue");
  try {
    Guard(u"A.B", [] { throw Error(7, u"Client", u"x", u"help.chm", 42); });
  } catch (const Error& e) {
    EXPECT_EQ(e.HelpFile(), u"help.chm");
    EXPECT_EQ(e.HelpContext(), 42);
    EXPECT_EQ(SourceLines(e), (std::vector<String>{u"Client", u"A.B"}));
  }
  EXPECT_ERROR(Guard(u"X.Y", [] { throw std::bad_alloc(); }), 7, u"Out of memory", u"Tarvo2\r\nX.Y");
}

TEST(StandardHandler, ResumeNextDiscardsAndGoesOn) {
  const auto services = Services::New();
  int steps = 0;
  EXPECT_FALSE(ResumeNext([&] { RaiseLibraryError(*services, ErrBadKey); }));
  EXPECT_TRUE(ResumeNext([&] { ++steps; }));
  EXPECT_EQ(steps, 1);
}

}  // namespace
}  // namespace tarvo2
