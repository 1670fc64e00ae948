#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace vorna::bridge {

// Where the bridge's diagnostics go: each call receives one whole line,
// "Vorna bridge: " + message + "\n". Tests replace it to read the lines.
using BridgeLogSink = std::function<void(std::string_view line)>;

// "Vorna bridge: " + message + "\n".
std::string bridgeLogLine(std::string_view message);

// Writes the line to standard error in one write, so that lines from several
// threads never interleave.
void writeBridgeLogToStandardError(std::string_view line);

}  // namespace vorna::bridge
