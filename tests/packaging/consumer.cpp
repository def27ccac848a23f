// A client program as a user of the installed library writes it: only the
// umbrella header, objects created by class name, members called by name.
// Exits 0 when every store it creates gives back what was put into it.
#include <cstdio>
#include <string>

#include "tarvo2/tarvo2.h"

using namespace tarvo2;

int main(int argc, char** argv) {
  const std::string label = argc > 1 ? argv[1] : "consumer";
  try {
    // FromUtf8 comes from codepage.h, reached through the umbrella header.
    const String colour = FromUtf8("Rouge \xC3\xA9" "carlate");
    Variant store(CreateObject(u"Tarvo2.KivStorageString"));
    Call(store, u"SetValue", {u"Colour", colour});
    Call(store, u"SetValue", {u"Count", 42});
    const Variant text = Call(store, u"GetValue", {u"Colour"});
    const Variant count = Call(store, u"GetValue", {u"Count"});
    if (!text.IsString() || text.AsString() != colour) {
      std::printf("%s: Colour reads back as \"%s\"\n", label.c_str(),
                  ToUtf8(ToString(text)).c_str());
      return 1;
    }
    if (ToLong(count) != 42) {
      std::printf("%s: Count reads back as \"%s\"\n", label.c_str(),
                  ToUtf8(ToString(count)).c_str());
      return 1;
    }
    // A library error reaches the client as tarvo2::Error: its type
    // information is shared with the library.
    try {
      Call(store, u"NoSuchMember");
      std::printf("%s: an unknown member raised nothing\n", label.c_str());
      return 1;
    } catch (const Error& e) {
      if (e.Number() != 438) {
        std::printf("%s: an unknown member raised %d\n", label.c_str(),
                    static_cast<int>(e.Number()));
        return 1;
      }
    }
    // Registry names under code page 65001 match under Unicode case
    // folding, which the library takes from ICU (TARVO2_REGISTRY=:memory:).
    SetCodePage(kCodePageUtf8);
    Variant key(CreateObject(u"Tarvo2.KivRegistryKey"));
    LetProperty(key, u"KeyName", u"Software\\Consumer");
    Call(key, u"SetValue", {u"\u03a3\u03c4\u03ae\u03bb\u03b7", colour});
    const Variant folded = Call(key, u"GetValue", {u"\u03c3\u03a4\u0389\u039b\u0397"});
    if (!folded.IsString() || folded.AsString() != colour) {
      std::printf("%s: a registry name did not match under case folding\n", label.c_str());
      return 1;
    }
    std::printf("%s: ok (%s, %s)\n", label.c_str(), ToUtf8(text.AsString()).c_str(),
                ToUtf8(TypeName(Variant(store))).c_str());
    return 0;
  } catch (const Error& e) {
    std::printf("%s: error %d: %s\n", label.c_str(), static_cast<int>(e.Number()),
                ToUtf8(e.Description()).c_str());
    return 1;
  }
}
