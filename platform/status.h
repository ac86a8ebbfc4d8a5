// One status type for every layer: a code (0 = success) and a message.
// Returned by value; no global error state, since several workers run at once.
#pragma once

#include <string>
#include <utility>

namespace pictavo {

class [[nodiscard]] Status {
 public:
  Status() = default;

  static Status OK() { return Status(); }
  static Status Error(std::string message, int code = 1) {
    return Status(code == 0 ? 1 : code, std::move(message));
  }

  bool ok() const { return code_ == 0; }
  int code() const { return code_; }
  const std::string& message() const { return message_; }

 private:
  Status(int code, std::string message) : code_(code), message_(std::move(message)) {}

  int code_ = 0;
  std::string message_;
};

}  // namespace pictavo
