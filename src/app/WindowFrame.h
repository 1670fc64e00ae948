#pragma once

namespace vorna::app {

// What the window remembers of itself between runs.
struct WindowFrame {
  int width = 1200;
  int height = 800;
  bool maximized = false;

  bool operator==(const WindowFrame&) const = default;
};

}  // namespace vorna::app
