#include "tarvo2/std_interface.h"

#include <string>


namespace tarvo2 {
namespace {

String Decimal(std::int32_t n) {
  std::string s = std::to_string(n);
  return String(s.begin(), s.end());
}

}  // namespace

String VersionReportText(StringView class_name) {
  String text = kLibraryFileName;
  text += u" - ";
  text += Decimal(kVersionMajor) + u"." + Decimal(kVersionMinor) + u"." + Decimal(kVersionRevision);
  text += u"\rModule: ";
  text += class_name;
  text += u" - ";
  text += kInternalVersion;
  return text;
}

String VersionReport(const Services& services, StringView class_name, bool show) {
  String text = VersionReportText(class_name);
  if (show) {
    String title = String(kLibraryFileName) + u" - Version Information";
    services.message_box()->Show(text, title, kMbOk | kMbIconInformation);
  }
  return kInternalVersion;
}

const TypeInfo& TarvoStdInterface::Info() {
  static const TypeInfo info =
      ClassBuilder<TarvoStdInterface>(u"TarvoStdInterface")
          .Let(u"Path", &TarvoStdInterface::put_Path, u"The path of the object", {P(u"sPath")})
          .Get(u"Path", &TarvoStdInterface::get_Path, u"The path of the object")
          .Let(u"Section", &TarvoStdInterface::put_Section, u"The section to store data in", {P(u"sSection")})
          .Get(u"Section", &TarvoStdInterface::get_Section, u"The section to store data in")
          .Method(u"SetValue", &TarvoStdInterface::SetValue, u"Sets a value in a field",
                  {P(u"sFieldName"), P(u"vValue"), P(u"sDelimiter", u"\t")})
          .Method(u"GetValue", &TarvoStdInterface::GetValue, u"Gets a value from a field",
                  {P(u"sFieldName"), P(u"sDelimiter", u"\t")})
          .Get(u"Version", &TarvoStdInterface::Version,
                  u"Returns the internal version number given to the object", {P(u"bShow", false)})
          .Build();
  return info;
}

void TarvoStdInterface::put_Path(const String&) {}
String TarvoStdInterface::get_Path() { return String(); }
void TarvoStdInterface::put_Section(const String&) {}
String TarvoStdInterface::get_Section() { return String(); }
bool TarvoStdInterface::SetValue(const String&, const Variant&, const String&) { return false; }
Variant TarvoStdInterface::GetValue(const String&, const String&) { return Variant(); }

Variant TarvoStdInterface::Version(bool bShow) {
  return Guard(u"TarvoStdInterface.Version (Get)",
               [&] { return Variant(VersionReport(*services_, u"TarvoStdInterface", bShow)); });
}

}  // namespace tarvo2
