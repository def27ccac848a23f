// Shared test helpers.
#ifndef TARVO2_TESTS_TEST_UTIL_H_
#define TARVO2_TESTS_TEST_UTIL_H_

#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "tarvo2/codepage.h"
#include "tarvo2/convert.h"
#include "tarvo2/error.h"
#include "tarvo2/variant.h"

namespace tarvo2 {

// Readable output of 16-bit strings and Variants in failure messages.
inline void PrintTo(const String& s, std::ostream* os) { *os << '"' << ToUtf8(s) << '"'; }
void PrintTo(const Variant& v, std::ostream* os);

// The source chain as its lines.
std::vector<String> SourceLines(const Error& e);

// Sets the code page of a context (or of a store) for a scope and restores
// the one before.
template <class Context>
class ScopedCodePage {
 public:
  ScopedCodePage(Context& context, std::uint32_t code_page)
      : context_(context), old_(context.code_page()) {
    context.set_code_page(code_page);
  }
  ~ScopedCodePage() { context_.set_code_page(old_); }
  ScopedCodePage(const ScopedCodePage&) = delete;
  ScopedCodePage& operator=(const ScopedCodePage&) = delete;

 private:
  Context& context_;
  std::uint32_t old_;
};

// True when the suite runs under code page 65001 (TARVO2_CODEPAGE, the code
// page every context starts with); the store tables run under both code
// pages and pick their code-page text here.
inline bool Utf8Run() { return EnvironmentCodePage() == kCodePageUtf8; }

}  // namespace tarvo2

// Asserts that `stmt` raises a tarvo2::Error with exactly this number,
// description and source chain (lines joined by CR LF).
#define EXPECT_ERROR(stmt, number, description, source)                          \
  do {                                                                           \
    try {                                                                        \
      stmt;                                                                      \
      ADD_FAILURE() << "expected error " << (number) << " from " #stmt;        \
    } catch (const ::tarvo2::Error& e_) {                                        \
      EXPECT_EQ(e_.Number(), (number));                                          \
      EXPECT_EQ(e_.Description(), ::tarvo2::String(description));              \
      EXPECT_EQ(e_.Source(), ::tarvo2::String(source));                        \
    }                                                                            \
  } while (0)

// Asserts only the number.
#define EXPECT_ERROR_NUMBER(stmt, number)                                        \
  do {                                                                           \
    try {                                                                        \
      stmt;                                                                      \
      ADD_FAILURE() << "expected error " << (number) << " from " #stmt;        \
    } catch (const ::tarvo2::Error& e_) {                                        \
      EXPECT_EQ(e_.Number(), (number)) << e_.what();                             \
    }                                                                            \
  } while (0)

#endif  // TARVO2_TESTS_TEST_UTIL_H_
