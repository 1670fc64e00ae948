#pragma once

#include <functional>
#include <unordered_set>

#include "app/HTTPReply.h"

namespace vorna::app {

// The scheme's requests that were started and not yet answered. Every answer
// goes through `finish`, so each request is answered exactly once: a second
// answer is dropped, and a request whose start fails once it is recorded is
// answered there and then. The engine has no "stopped" notification and
// finishing an abandoned request is a silent no-op, so nothing is ever
// removed but by an answer. Main thread only.
class SchemeRequestLedger {
 public:
  // Hands one answer to the engine; it must not fail to do so for any request.
  using Respond = std::function<void(void* request, HTTPReply reply)>;

  explicit SchemeRequestLedger(Respond respond) : respond_(std::move(respond)) {}

  // Records `request`, then runs `begin`, which arranges the answer. Should
  // `begin` throw, the request is answered 500 with the error's text.
  void start(void* request, const std::function<void()>& begin);
  // Answers `request` unless it was answered already.
  void finish(void* request, HTTPReply reply);

 private:
  Respond respond_;
  std::unordered_set<void*> live_;
};

}  // namespace vorna::app
