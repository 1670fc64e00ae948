#pragma once

#include "contracts/BridgeResponse.h"

namespace vorna::bridge {

// A path parameter that was refused, with the complete answer to send back.
// Operations return `response` unchanged.
struct PathRefusal {
  contracts::BridgeResponse response;

  bool operator==(const PathRefusal&) const = default;
};

}  // namespace vorna::bridge
