#include "app/SchemeRequestLedger.h"

#include <exception>

namespace vorna::app {

void SchemeRequestLedger::start(void* request, const std::function<void()>& begin) {
  live_.insert(request);
  try {
    begin();
  } catch (const std::exception& error) {
    finish(request, HTTPReply::error(500, error.what()));
  }
}

void SchemeRequestLedger::finish(void* request, HTTPReply reply) {
  if (live_.erase(request) == 1) {
    respond_(request, std::move(reply));
  }
}

}  // namespace vorna::app
