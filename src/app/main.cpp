#include <string>
#include <vector>

#include "app/AppDelegate.h"

int main(int argc, char** argv) {
  std::vector<std::string> arguments(argv + 1, argv + argc);
  vorna::app::AppDelegate delegate(arguments);
  // A desktop "activation policy" (Dock presence) has no Linux counterpart.
  return delegate.run(argv[0]);
}
