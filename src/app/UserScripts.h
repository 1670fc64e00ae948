#pragma once

#include <vector>

#include "app/UserScript.h"

namespace vorna::app {

// The scripts the host injects into the editor's page.
struct UserScripts {
  UserScripts() = delete;

  // In this order, main frame only: the storage shim (an in-memory
  // localStorage where the engine refuses one), then the bridge shim (probes
  // the scheme transport once and routes every /api/ fetch through the winner).
  static const std::vector<UserScript>& all();

  // Every frame, after the two above: turns Blob and File bodies of requests
  // to vorna: (fetch, XMLHttpRequest, sendBeacon) into bytes before they leave
  // the page, refuses a FormData holding a Blob with a clear error, and marks
  // every request with a body that it let through with kBodyHeader. The
  // engine crashes the host when it hands a Blob body to the scheme handler,
  // so the handler reads no body without the mark: a body from where no guard
  // ran (a worker, a beacon, a form, a frame the guard has not reached yet)
  // is refused unread.
  static const UserScript& bodyGuard();

  // The mark of a body that passed the guard, and its value. The bridge shim's
  // probe carries it too.
  static constexpr const char* kBodyHeader = "X-VN-Body";
  static constexpr const char* kBodyHeaderValue = "bytes";

  // The messages of its refusals, as the page sees them: a FormData holding a
  // file, and a file body where it cannot be read first (a synchronous
  // XMLHttpRequest, sendBeacon).
  static constexpr const char* kFormDataRefusal =
      "vorna: a FormData body holding a file cannot be sent to the host; send the file's bytes "
      "as the body instead";
  static constexpr const char* kBlobRefusal =
      "vorna: this request cannot carry a file to the host; send it with an asynchronous fetch "
      "instead";
};

}  // namespace vorna::app
