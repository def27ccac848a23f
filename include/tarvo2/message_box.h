// The message-box service: how the library shows a modal message.
//
// The version report is the only user interface of the library. It goes
// through the MessageBoxService of the object's context (see services.h),
// which an application (or a test) can replace. The default one writes the title and the message to standard
// output and, when standard input is a terminal, waits until the user
// presses Enter.
#ifndef TARVO2_MESSAGE_BOX_H_
#define TARVO2_MESSAGE_BOX_H_

#include <cstdint>
#include <memory>

#include "tarvo2/export.h"
#include "tarvo2/object.h"

namespace tarvo2 {

// Message box styles the library uses.
inline constexpr std::int32_t kMbOk = 0;
inline constexpr std::int32_t kMbIconInformation = 64;

class TARVO2_EXPORT MessageBoxService {
 public:
  virtual ~MessageBoxService() = default;
  // Shows `message` with `title` and returns when the user has closed it.
  // A failure is reported by throwing tarvo2::Error.
  virtual void Show(StringView message, StringView title, std::int32_t style) = 0;
};

// The terminal message box, the default service.
TARVO2_EXPORT std::shared_ptr<MessageBoxService> NewTerminalMessageBox();

}  // namespace tarvo2

#endif  // TARVO2_MESSAGE_BOX_H_
