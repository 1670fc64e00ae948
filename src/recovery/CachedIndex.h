#pragma once

#include <cerrno>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "contracts/Json.h"
#include "contracts/RecoveryError.h"
#include "recovery/FileStamp.h"
#include "recovery/IndexFiles.h"
#include "storage/DurableChanges.h"
#include "storage/FileOpError.h"
#include "storage/PathNames.h"

namespace vorna::recovery {

// One index file that is a JSON array of records, kept parsed in memory
// together with each record's serialised text. The memory stands for the file
// while the file's stamp (device, inode, size, times) is the one it had when
// this object last wrote it, or read it settled; otherwise the file is read
// whole again, so a change by another instance is seen on the next call.
//
// Writes replace the file whole (writeIndex's guarantees and errors), but the
// text is assembled from the kept element texts: only an appended or changed
// record is serialised, and the bytes are exactly those writeIndex would write
// for the same list. A failed write forgets the memory.
//
// Not thread-safe; its owner serialises calls.
template <typename T>
class CachedIndex {
 public:
  using Decode = std::function<T(const contracts::Json&)>;

  CachedIndex(std::string path, storage::FileSystem& fs, Decode decode)
      : path_(std::move(path)), fs_(fs), decode_(std::move(decode)) {}

  // The records on disk now; readIndexList's errors.
  const std::vector<T>& entries() {
    std::optional<FileStamp> stamp = FileStamp::of(path_, fs_);
    if (!stamp && errno == ENOENT) {
      state_ = State{};
      return state_->entries;
    }
    if (state_ && stamp && state_->stamp && *stamp == *state_->stamp) {
      return state_->entries;
    }
    state_.reset();
    std::vector<T> list = readIndexList<T>(path_, fs_, decode_);
    State fresh;
    fresh.texts.reserve(list.size());
    for (const T& record : list) {
      fresh.texts.push_back(textOf(record));
    }
    fresh.entries = std::move(list);
    // A stamp taken within the clock tick of the last change could also
    // describe a change made after the read.
    if (stamp && stamp->settled()) {
      fresh.stamp = stamp;
    }
    state_ = std::move(fresh);
    return state_->entries;
  }

  // Writes the records with `record` after them.
  void append(T record) {
    entries();
    std::string text = textOf(record);
    state_->entries.push_back(std::move(record));
    state_->texts.push_back(std::move(text));
    write();
  }

  // Writes `list`, the records as entries() gave them with those at `changed`
  // altered (nothing added or removed).
  void change(std::vector<T> list, const std::vector<size_t>& changed) {
    entries();
    std::vector<std::string> texts;
    texts.reserve(changed.size());
    for (size_t index : changed) {
      texts.push_back(textOf(list.at(index)));
    }
    for (size_t at = 0; at < changed.size(); ++at) {
      state_->texts.at(changed[at]) = std::move(texts[at]);
    }
    state_->entries = std::move(list);
    write();
  }

  // Writes `list` whole.
  void rewrite(std::vector<T> list) {
    State fresh;
    for (const T& record : list) {
      fresh.texts.push_back(textOf(record));
    }
    fresh.entries = std::move(list);
    state_ = std::move(fresh);
    write();
  }

 private:
  struct State {
    std::vector<T> entries;
    std::vector<std::string> texts;  // writeJson of each record
    std::optional<FileStamp> stamp;  // none: read from disk next time
  };

  std::string textOf(const T& record) const {
    contracts::Json json = record.toJson();
    std::string text = contracts::writeJson(json);
    // The writer answers "{}" for a value it cannot write; writing that would
    // silently empty a record.
    if (text == "{}" && !(json.is_object() && json.empty())) {
      throw contracts::RecoveryError::storeUnavailable("cannot write " +
                                                       storage::lastComponent(path_) +
                                                       ": it holds text that is not valid UTF-8");
    }
    return text;
  }

  void write() {
    std::string text = "[";
    size_t length = 2;
    for (const std::string& element : state_->texts) {
      length += element.size() + 1;
    }
    text.reserve(length);
    for (size_t index = 0; index < state_->texts.size(); ++index) {
      if (index > 0) {
        text += ',';
      }
      text += state_->texts[index];
    }
    text += ']';
    try {
      storage::DurableChanges(fs_).replace(path_, text, 0600);
    } catch (const storage::FileOpError& error) {
      state_.reset();
      throw contracts::RecoveryError::storeUnavailable(
          "cannot write " + storage::lastComponent(path_) + ": " + error.description());
    }
    state_->stamp = FileStamp::of(path_, fs_);
  }

  std::string path_;
  storage::FileSystem& fs_;
  Decode decode_;
  std::optional<State> state_;
};

}  // namespace vorna::recovery
