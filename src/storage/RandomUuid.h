#pragma once

#include <string>

namespace vorna::storage {

// A fresh random UUID in canonical upper-case form (36 characters). Names drawn
// with it never collide across processes, which is what lets files be created
// exclusively without retries.
std::string randomUuid();

}  // namespace vorna::storage
