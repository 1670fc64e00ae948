#pragma once

#include <cerrno>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
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
// Every call is made under the owner's lock; writers pass it in as `hold`. A change is
// made in memory at once; append and change then release the lock while the
// file is written, and writers that come meanwhile are served by the next
// write, which carries all of their changes at once (group commit). Each
// returns, or throws the write's error, only once a write made after its change
// has finished, so its change is on disk before its caller answers. Writes of
// the file never overlap, and follow the order of the changes. A reader may see
// a change whose writer still waits for the disk. rewrite keeps the lock across
// its write, for callers that must act on the file's new content before anyone
// else changes the list.
template <typename T>
class CachedIndex {
 public:
  using Decode = std::function<T(const contracts::Json&)>;

  CachedIndex(std::string path, storage::FileSystem& fs, Decode decode)
      : path_(std::move(path)), fs_(fs), decode_(std::move(decode)) {}

  // The records on disk now; readIndexList's errors.
  const std::vector<T>& entries() {
    // While changes are on their way to disk, the file is not yet (or is just
    // being replaced with) what memory holds.
    if (state_ && (writing_ || (written_ < changed_ && failedThrough_ < changed_))) {
      return state_->entries;
    }
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
  void append(T record, std::unique_lock<std::mutex>& hold) {
    entries();
    std::string text = textOf(record);
    state_->entries.push_back(std::move(record));
    state_->texts.push_back(std::move(text));
    commit(hold);
  }

  // Writes `list`, the records as entries() gave them with those at `changed`
  // altered (nothing added or removed).
  void change(std::vector<T> list, const std::vector<size_t>& changed,
              std::unique_lock<std::mutex>& hold) {
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
    commit(hold);
  }

  // Writes `list` whole, without letting go of the lock.
  void rewrite(std::vector<T> list, std::unique_lock<std::mutex>& hold) {
    State fresh;
    for (const T& record : list) {
      fresh.texts.push_back(textOf(record));
    }
    fresh.entries = std::move(list);
    // A write under way carries an older list and must land first.
    writable_.wait(hold, [this] { return !writing_; });
    state_ = std::move(fresh);
    const std::uint64_t mine = ++changed_;
    Written written = write(assemble());
    settle(mine, written);
    if (written.failure) {
      throw contracts::RecoveryError::storeUnavailable(*written.failure);
    }
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

  std::string assemble() const {
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
    return text;
  }

  struct Written {
    std::optional<std::string> failure;  // the error's text
    std::optional<FileStamp> stamp;      // the file's, once replaced
  };

  // Replaces the file with `text`. Only ever run by one thread at a time:
  // with writing_ set, or under the lock with no write under way.
  Written write(const std::string& text) {
    try {
      storage::DurableChanges(fs_).replace(path_, text, 0600);
    } catch (const storage::FileOpError& error) {
      return {"cannot write " + storage::lastComponent(path_) + ": " + error.description(), {}};
    }
    return {std::nullopt, FileStamp::of(path_, fs_)};
  }

  // Records, under the lock, how the write of every change up to `through`
  // ended, and wakes whoever waits for it.
  void settle(std::uint64_t through, const Written& written) {
    if (written.failure) {
      // Memory may hold changes the file never will: every waiting writer
      // fails, and the next call reads the file again.
      failedThrough_ = changed_;
      failure_ = *written.failure;
      state_.reset();
    } else {
      written_ = through;
      if (state_) {
        state_->stamp = written.stamp;
      }
    }
    writable_.notify_all();
  }

  // Returns once a write made after this thread's change has finished, and
  // throws its error when it failed. The first writer to find no write under
  // way writes the whole list, with the lock let go meanwhile.
  void commit(std::unique_lock<std::mutex>& hold) {
    const std::uint64_t mine = ++changed_;
    for (;;) {
      if (written_ >= mine) {
        return;
      }
      if (failedThrough_ >= mine) {
        throw contracts::RecoveryError::storeUnavailable(failure_);
      }
      if (writing_) {
        writable_.wait(hold);
        continue;
      }
      writing_ = true;
      const std::uint64_t through = changed_;
      std::string text = assemble();
      hold.unlock();
      Written written = write(text);
      hold.lock();
      writing_ = false;
      settle(through, written);
    }
  }

  std::string path_;
  storage::FileSystem& fs_;
  Decode decode_;
  std::optional<State> state_;
  // Changes are numbered as they are made; all below are guarded by the owner's lock.
  std::uint64_t changed_ = 0;        // the last change made in memory
  std::uint64_t written_ = 0;        // the last change the file holds
  std::uint64_t failedThrough_ = 0;  // changes whose write failed
  std::string failure_;              // that write's error
  bool writing_ = false;             // a write is under way, without the lock
  std::condition_variable writable_;
};

}  // namespace vorna::recovery
