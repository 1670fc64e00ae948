#pragma once

#include <time.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "storage/FileSystem.h"

// What the bridge tells the editor about an item without reading its content.
namespace vorna::bridge {

enum class ItemKind { file, directory };

// "file" or "directory", as the answers spell them.
std::string_view itemKindName(ItemKind kind);

// What is at `path`, following symbolic links: directory for a folder, file for
// anything else that exists (a device or socket included), nothing when nothing
// can be reached there (a dangling link included).
std::optional<ItemKind> kindOf(const std::string& path, storage::FileSystem& fs);

// Whether `path` leads (through links) to a regular file: the only kind whose
// content the bridge reads, since opening a pipe could wait for a writer forever
// and a device could be endless.
bool isRegularFile(const std::string& path, storage::FileSystem& fs);

// An item's modification time in the two forms the answers carry.
struct ModificationTime {
  double seconds = 0;             // since 1970-01-01 UTC, fractional
  std::int64_t milliseconds = 0;  // the same, rounded with halves away from zero

  // Rounds from the exact time, so 1.0625 s is 1063 ms whatever a double makes
  // of the nanoseconds.
  static ModificationTime of(const timespec& time);
  bool operator==(const ModificationTime&) const = default;
};

// The item's own modification time (a final symbolic link is not followed);
// zero in both forms when its attributes cannot be read.
ModificationTime modificationTime(const std::string& path, storage::FileSystem& fs);

}  // namespace vorna::bridge
