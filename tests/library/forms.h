// A host form for the placement tests: a client object with the properties
// the placement helpers read and write.
#ifndef TARVO2_TESTS_LIBRARY_FORMS_H_
#define TARVO2_TESTS_LIBRARY_FORMS_H_

#include <vector>

#include "tarvo2/dispatch.h"

namespace tarvo2 {

inline Variant Form(double top, double left, double width, double height, std::int32_t state = 0,
                    const char16_t* name = u"frmMain") {
  Ref<DynamicObject> f = MakeRef<DynamicObject>(u"Form");
  f->Put(u"Top", top);
  f->Put(u"Left", left);
  f->Put(u"Width", width);
  f->Put(u"Height", height);
  f->Put(u"WindowState", state);
  f->Put(u"Name", String(name));
  return Variant(f);
}

// A form's Top, Left, Width, Height and WindowState.
inline std::vector<Variant> Placement(const Variant& form) {
  std::vector<Variant> out;
  for (const char16_t* p : {u"Top", u"Left", u"Width", u"Height", u"WindowState"}) out.push_back(GetProperty(form, p));
  return out;
}

}  // namespace tarvo2

#endif  // TARVO2_TESTS_LIBRARY_FORMS_H_
