// The screen service: the size of the host's screen, in the host's units.
//
// Window placement centres forms on the screen. The host application sets
// the service of its context (see services.h) so that the library sees the
// screen in the same units as its forms. The default reports 1920 x 1080, or the size in
// the environment variable TARVO2_SCREEN ("<width>x<height>") when it is set
// and well formed.
#ifndef TARVO2_SCREEN_H_
#define TARVO2_SCREEN_H_

#include <memory>

#include "tarvo2/export.h"

namespace tarvo2 {

class TARVO2_EXPORT ScreenService {
 public:
  virtual ~ScreenService() = default;
  virtual double Width() = 0;
  virtual double Height() = 0;
};

// The default service: 1920 x 1080, or the size in TARVO2_SCREEN when it
// is set and well formed (read once, here).
TARVO2_EXPORT std::shared_ptr<ScreenService> NewDefaultScreenService();
// A screen of a fixed size.
TARVO2_EXPORT std::shared_ptr<ScreenService> NewFixedScreenService(double width, double height);

}  // namespace tarvo2

#endif  // TARVO2_SCREEN_H_
