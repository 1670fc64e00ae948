#include "app/DraftHandshake.h"

#include "app/PageScript.h"

namespace vorna::app {

DraftHandshake::DraftHandshake(WebKitWebView* view, std::chrono::milliseconds wait)
    : view_(view), wait_(wait) {}

DraftHandshake::~DraftHandshake() {
  alive_.reset();
}

void DraftHandshake::request(std::function<void()> then) {
  waiting_.push_back(std::move(then));
  if (waiting_.size() > 1) {
    return;
  }
  unsigned round = ++round_;
  deadline_.start(wait_, [this] { answered(); });
  callAsyncScript(view_, kScript, nullptr, "vorna-host://draft-handshake",
                  [alive = std::weak_ptr<DraftHandshake*>(alive_), round](ScriptOutcome) {
                    // A failed script is an answer too; a late one belongs to a round that
                    // already ended.
                    if (auto self = alive.lock(); self && (*self)->round_ == round) {
                      (*self)->answered();
                    }
                  });
}

void DraftHandshake::answered() {
  deadline_.cancel();
  ++round_;
  std::vector<std::function<void()>> waiting = std::move(waiting_);
  waiting_.clear();
  for (std::function<void()>& then : waiting) {
    then();
  }
}

}  // namespace vorna::app
