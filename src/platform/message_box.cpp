#include "tarvo2/message_box.h"

#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <string>

#include "tarvo2/codepage.h"

namespace tarvo2 {
namespace {

class TerminalMessageBox : public MessageBoxService {
 public:
  void Show(StringView message, StringView title, std::int32_t style) override {
    String text(message);
    // A lone CR separates lines in a message; the terminal wants LF.
    for (char16_t& c : text)
      if (c == u'\r') c = u'\n';
    std::cout << "[" << ToUtf8(title) << "]\n" << ToUtf8(text) << std::endl;
    if (isatty(STDIN_FILENO)) {
      std::cout << "(press Enter to continue)" << std::flush;
      std::string line;
      std::getline(std::cin, line);
    }
  }
};

}  // namespace

std::shared_ptr<MessageBoxService> NewTerminalMessageBox() { return std::make_shared<TerminalMessageBox>(); }

}  // namespace tarvo2
