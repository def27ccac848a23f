#include "tarvo2/screen.h"

#include <cstdlib>
#include <string>

namespace tarvo2 {
namespace {

class FixedScreen : public ScreenService {
 public:
  FixedScreen(double w, double h) : w_(w), h_(h) {}
  double Width() override { return w_; }
  double Height() override { return h_; }

 private:
  double w_, h_;
};

}  // namespace

std::shared_ptr<ScreenService> NewDefaultScreenService() {
  double w = 1920, h = 1080;
  if (const char* env = std::getenv("TARVO2_SCREEN")) {
    std::string s = env;
    std::size_t x = s.find('x');
    if (x != std::string::npos) {
      char* end1 = nullptr;
      char* end2 = nullptr;
      std::string ws = s.substr(0, x), hs = s.substr(x + 1);
      double pw = std::strtod(ws.c_str(), &end1);
      double ph = std::strtod(hs.c_str(), &end2);
      if (end1 && *end1 == '\0' && end2 && *end2 == '\0' && pw > 0 && ph > 0) {
        w = pw;
        h = ph;
      }
    }
  }
  return std::make_shared<FixedScreen>(w, h);
}

std::shared_ptr<ScreenService> NewFixedScreenService(double width, double height) {
  return std::make_shared<FixedScreen>(width, height);
}

}  // namespace tarvo2
