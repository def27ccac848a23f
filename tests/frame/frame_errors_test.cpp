// Library errors, the raise switch, the standard handler's source chain.
#include <gtest/gtest.h>

#include <set>

#include "tarvo2/library_errors.h"
#include "test_util.h"

namespace tarvo2 {
namespace {

// Each code raises its own number with a message of its own and the
// library as the source; numbers next to the table have no message.
TEST(LibraryErrors, EveryCodeRaisesItsNumberWithAMessageOfItsOwn) {
  const auto services = Services::New();
  std::set<String> messages;
  for (std::int32_t code = ErrDirectStringAccess; code <= ErrObjectInvalidated; ++code) {
    SCOPED_TRACE(code);
    const std::int32_t number = LibraryErrorNumber(code);
    const String message = LibraryErrorMessage(number);
    EXPECT_FALSE(message.empty());
    EXPECT_TRUE(messages.insert(message).second) << "message shared with another code";
    EXPECT_ERROR(RaiseLibraryError(*services, static_cast<LibraryErrorCode>(code)), number, message, u"Tarvo2");
  }
  EXPECT_EQ(LibraryErrorMessage(LibraryErrorNumber(ErrDirectStringAccess - 1)), u"");
  EXPECT_EQ(LibraryErrorMessage(LibraryErrorNumber(ErrObjectInvalidated + 1)), u"");
  EXPECT_EQ(LibraryErrorMessage(ErrBadKey), u"");  // a code is not a number
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
