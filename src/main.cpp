#include <string>
#include <vector>

#include "app/AppDelegate.h"
#include "selftest/SelfTests.h"

int main(int argc, char** argv) {
  std::vector<std::string> arguments(argv + 1, argv + argc);
  vorna::app::AppDelegate delegate(arguments, vorna::selftest::SelfTests::create);
  // A desktop "activation policy" (Dock presence) has no Linux counterpart.
  return delegate.run(argv[0]);
}
