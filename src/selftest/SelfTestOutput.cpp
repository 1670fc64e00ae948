#include "selftest/SelfTestOutput.h"

#include <cstdio>

namespace vorna::selftest {

SelfTestOutput SelfTestOutput::standard(std::function<void(int)> exit) {
  return SelfTestOutput{[](std::string_view text) {
                          std::fwrite(text.data(), 1, text.size(), stdout);
                          std::fflush(stdout);
                        },
                        [](std::string_view text) {
                          std::fwrite(text.data(), 1, text.size(), stderr);
                          std::fflush(stderr);
                        },
                        [exit = std::move(exit)](int code) {
                          std::fflush(stdout);
                          exit(code);
                        }};
}

}  // namespace vorna::selftest
