#pragma once

#include <stdlib.h>

#include <optional>
#include <string>

namespace vorna::bridge::testfixture {

// Sets one environment variable (or removes it, for a null value) for the
// life of the object, then puts back what was there.
class ScopedVariable {
 public:
  ScopedVariable(const char* name, const char* value) : name_(name) {
    previous_ = ::getenv(name) ? std::optional<std::string>(::getenv(name)) : std::nullopt;
    set(value);
  }
  ~ScopedVariable() { set(previous_ ? previous_->c_str() : nullptr); }
  ScopedVariable(const ScopedVariable&) = delete;
  ScopedVariable& operator=(const ScopedVariable&) = delete;

 private:
  void set(const char* value) const { value ? ::setenv(name_, value, 1) : ::unsetenv(name_); }
  const char* name_;
  std::optional<std::string> previous_;
};

}  // namespace vorna::bridge::testfixture
