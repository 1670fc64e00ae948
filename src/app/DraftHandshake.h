#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <vector>

#include "app/MainLoopTimer.h"

typedef struct _WebKitWebView WebKitWebView;

namespace vorna::app {

// Before the host lets the editor page go (closing the window, quitting,
// opening another folder, a signal), it asks the page to hand over unsaved
// text as a draft (window.vornaHost.flush()) and waits for the answer, at most
// kWait: typing from the last second is then in the recovery store, not lost
// with the page. Main thread.
class DraftHandshake {
 public:
  static constexpr std::chrono::milliseconds kWait{2000};
  // The page's side: resolves once a draft of any unsaved text is stored.
  static constexpr const char* kScript =
      "if (!window.vornaHost || typeof window.vornaHost.flush !== 'function') return false;\n"
      "return await window.vornaHost.flush();";

  explicit DraftHandshake(WebKitWebView* view, std::chrono::milliseconds wait = kWait);
  ~DraftHandshake();
  DraftHandshake(const DraftHandshake&) = delete;
  DraftHandshake& operator=(const DraftHandshake&) = delete;

  // Runs `then` once the page answered or the wait ran out, never before this
  // returns. Requests made while one is under way share its answer.
  void request(std::function<void()> then);

  bool pending() const { return !waiting_.empty(); }

 private:
  void answered();

  WebKitWebView* view_;
  const std::chrono::milliseconds wait_;
  std::vector<std::function<void()>> waiting_;
  unsigned round_ = 0;  // which answer the page's completion belongs to
  MainLoopTimer deadline_;
  std::shared_ptr<DraftHandshake*> alive_ = std::make_shared<DraftHandshake*>(this);
};

}  // namespace vorna::app
