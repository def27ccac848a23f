#include "tarvo2/error.h"

#include <new>
#include <unordered_map>

#include "tarvo2/codepage.h"

namespace tarvo2 {

String StandardDescription(std::int32_t number) {
  static const std::unordered_map<std::int32_t, const char16_t*> kTable = {
      {3, u"Return without GoSub"},
      {5, u"Invalid procedure call or argument"},
      {6, u"Overflow"},
      {7, u"Out of memory"},
      {9, u"Subscript out of range"},
      {10, u"This array is fixed or temporarily locked"},
      {11, u"Division by zero"},
      {13, u"Type mismatch"},
      {14, u"Out of string space"},
      {28, u"Out of stack space"},
      {35, u"Sub or Function not defined"},
      {48, u"Error in loading DLL"},
      {51, u"Internal error"},
      {52, u"Bad file name or number"},
      {53, u"File not found"},
      {54, u"Bad file mode"},
      {55, u"File already open"},
      {57, u"Device I/O error"},
      {58, u"File already exists"},
      {59, u"Bad record length"},
      {61, u"Disk full"},
      {62, u"Input past end of file"},
      {63, u"Bad record number"},
      {67, u"Too many files"},
      {68, u"Device unavailable"},
      {70, u"Permission denied"},
      {71, u"Disk not ready"},
      {74, u"Can't rename with different drive"},
      {75, u"Path/File access error"},
      {76, u"Path not found"},
      {91, u"Object variable or With block variable not set"},
      {92, u"For loop not initialized"},
      {93, u"Invalid pattern string"},
      {94, u"Invalid use of Null"},
      {424, u"Object required"},
      {429, u"ActiveX component can't create object"},
      {430, u"Class does not support Automation or does not support expected interface"},
      {438, u"Object doesn't support this property or method"},
      {440, u"Automation error"},
      {445, u"Object doesn't support this action"},
      {446, u"Object doesn't support named arguments"},
      {448, u"Named argument not found"},
      {449, u"Argument not optional"},
      {450, u"Wrong number of arguments or invalid property assignment"},
      {451, u"Property let procedure not defined and property get procedure did not return an object"},
  };
  auto it = kTable.find(number);
  return it != kTable.end() ? String(it->second) : String(u"Application-defined or object-defined error");
}

Error::Error(std::int32_t number, String source, String description, String help_file,
             std::int32_t help_context)
    : number_(number),
      source_(std::move(source)),
      description_(std::move(description)),
      help_file_(std::move(help_file)),
      help_context_(help_context) {}

void Error::AppendSource(StringView label) {
  source_ += u"\r\n";
  source_ += label;
}

const char* Error::what() const noexcept {
  try {
    String chain = source_;
    for (std::size_t p; (p = chain.find(u"\r\n")) != String::npos;) chain.replace(p, 2, u" <- ");
    what_ = std::to_string(number_) + ": " + ToUtf8(description_) + " [" + ToUtf8(chain) + "]";
    return what_.c_str();
  } catch (...) {
    return "tarvo2::Error";
  }
}

void RaiseRuntimeError(std::int32_t number) {
  throw Error(number, kLibraryName, StandardDescription(number));
}

Error CurrentError() {
  try {
    throw;
  } catch (const Error& e) {
    return e;
  } catch (const std::bad_alloc&) {
    return Error(err::kOutOfMemory, kLibraryName, StandardDescription(err::kOutOfMemory));
  } catch (const std::exception& e) {
    return Error(err::kInternalError, kLibraryName, StandardDescription(err::kInternalError) + u": " + FromUtf8(e.what()));
  } catch (...) {
    return Error(err::kInternalError, kLibraryName, StandardDescription(err::kInternalError));
  }
}

}  // namespace tarvo2
