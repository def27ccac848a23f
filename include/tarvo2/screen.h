// The screen service: the size of the host's screen, in the host's units.
//
// Window placement centres forms on the screen. The host application sets
// the service (or a fixed size) so that the library sees the screen in the
// same units as its forms. The default reports 1920 x 1080, or the size in
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

// The current service.
TARVO2_EXPORT std::shared_ptr<ScreenService> GetScreenService();
// Replaces the current service; nullptr restores the default.
TARVO2_EXPORT void SetScreenService(std::shared_ptr<ScreenService> service);
// Replaces the current service with one of a fixed size.
TARVO2_EXPORT void SetScreenSize(double width, double height);

}  // namespace tarvo2

#endif  // TARVO2_SCREEN_H_
