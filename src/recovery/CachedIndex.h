#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "contracts/DecodeError.h"
#include "contracts/Json.h"
#include "contracts/RecoveryError.h"
#include "recovery/IndexFiles.h"
#include "recovery/IndexJournal.h"
#include "storage/FileOpError.h"
#include "storage/PathNames.h"

namespace vorna::recovery {

// One list index (IndexJournal: a snapshot and the journal of changes since),
// kept parsed in memory together with each record's serialised text. The
// memory stands for the files while their stamps (device, inode, size, times)
// are those they had when this object last wrote them, or read them settled;
// otherwise both are read whole again, so a change by another instance is seen
// on the next call.
//
// append and change add a line per changed record to the journal, so their
// cost does not grow with the list. Once the journal would outgrow its
// snapshot (and `journalLimit`), the write is a compaction instead: the list,
// assembled from the kept element texts, becomes the new snapshot, whose
// bytes are exactly those writeIndex would write for it. Errors of a write are
// "cannot write {snapshot file name}: {error}"; a failed write forgets the
// memory.
//
// Every call is made under the owner's lock; writers pass it in as `hold`. A change is
// made in memory at once; append and change then release the lock while the
// files are written, and writers that come meanwhile are served by the next
// write, which carries all of their changes at once (group commit). Each
// returns, or throws the write's error, only once a write made after its change
// has finished, so its change is on disk before its caller answers. Writes
// never overlap, and follow the order of the changes. A reader may see a
// change whose writer still waits for the disk. rewrite compacts, and keeps
// the lock across its write, for callers that must act on the file's new
// content before anyone else changes the list.
template <typename T>
class CachedIndex {
 public:
  using Decode = std::function<T(const contracts::Json&)>;

  CachedIndex(std::string path, storage::FileSystem& fs, Decode decode, std::size_t journalLimit)
      : files_(std::move(path), fs), decode_(std::move(decode)), journalLimit_(journalLimit) {}

  // The records on disk now; IndexJournal::read's errors, and "element {n}:
  // {why}" (snapshot) or "line {n}: {why}" (journal) for a record that does
  // not decode.
  const std::vector<T>& entries() {
    // While changes are on their way to disk, the files are not yet what
    // memory holds.
    if (state_ && (writing_ || (written_ < changed_ && failedThrough_ < changed_))) {
      return state_->entries;
    }
    std::optional<IndexJournal::Stamps> stamps = files_.stamps();
    if (state_ && stamps && state_->stamps && *stamps == *state_->stamps) {
      return state_->entries;
    }
    state_.reset();
    pending_.clear();
    ++generation_;
    IndexJournal::Contents contents = files_.read();
    State fresh;
    fresh.entries.reserve(contents.snapshot.size() + contents.changes.size());
    for (size_t index = 0; index < contents.snapshot.size(); ++index) {
      fresh.entries.push_back(decoded(contents.snapshot[index], files_.snapshotPath(),
                                      "element " + std::to_string(index)));
    }
    for (const IndexJournal::Change& change : contents.changes) {
      const std::string where = "line " + std::to_string(change.line);
      if (change.at && *change.at >= fresh.entries.size()) {
        detail::throwUnreadable(files_.journalPath(),
                                where + ": no record " + std::to_string(*change.at) + " to change");
      }
      T record = decoded(change.record, files_.journalPath(), where);
      if (change.at) {
        fresh.entries[*change.at] = std::move(record);
      } else {
        fresh.entries.push_back(std::move(record));
      }
    }
    fresh.texts.reserve(fresh.entries.size());
    for (const T& record : fresh.entries) {
      fresh.texts.push_back(textOf(record));
    }
    // A stamp taken within the clock tick of the last change could also
    // describe a change made after the read.
    if (stamps && stamps->settled()) {
      fresh.stamps = stamps;
    }
    state_ = std::move(fresh);
    return state_->entries;
  }

  // Changes whenever what entries() gives may have changed.
  std::uint64_t generation() const { return generation_; }

  // Writes the records with `record` after them.
  void append(T record, std::unique_lock<std::mutex>& hold) {
    entries();
    std::string text = textOf(record);
    pending_ += IndexJournal::appendLine(text);
    state_->entries.push_back(std::move(record));
    state_->texts.push_back(std::move(text));
    ++generation_;
    commit(hold);
  }

  // Writes the records with each one at a given index replaced (nothing added
  // or removed). Only the changed records are copied, so the cost does not
  // grow with the list.
  void change(std::vector<std::pair<size_t, T>> changes, std::unique_lock<std::mutex>& hold) {
    entries();
    std::vector<std::string> texts;
    texts.reserve(changes.size());
    for (const auto& [index, record] : changes) {
      static_cast<void>(state_->entries.at(index));
      texts.push_back(textOf(record));
    }
    for (size_t at = 0; at < changes.size(); ++at) {
      const size_t index = changes[at].first;
      pending_ += IndexJournal::changeLine(index, texts[at]);
      state_->texts[index] = std::move(texts[at]);
      state_->entries[index] = std::move(changes[at].second);
    }
    ++generation_;
    commit(hold);
  }

  // Waits, letting the lock go, until no write is under way; true when it had
  // to wait, and the list may then have changed.
  bool awaitWrites(std::unique_lock<std::mutex>& hold) {
    if (!writing_) {
      return false;
    }
    writable_.wait(hold, [this] { return !writing_; });
    return true;
  }

  // Writes `list` whole as the new snapshot, without letting go of the lock.
  // `list` must be made from entries() under this hold while no write is under
  // way (awaitWrites): a change that came during a write would otherwise be
  // lost, though its writer was told it is on disk.
  void rewrite(std::vector<T> list, std::unique_lock<std::mutex>& hold) {
    if (!hold.owns_lock() || writing_) {
      throw std::logic_error("CachedIndex::rewrite without the lock or during a write");
    }
    State fresh;
    for (const T& record : list) {
      fresh.texts.push_back(textOf(record));
    }
    fresh.entries = std::move(list);
    state_ = std::move(fresh);
    pending_.clear();
    ++generation_;
    const std::uint64_t mine = ++changed_;
    Written written = write({}, assemble());
    settle(mine, written);
    if (written.failure) {
      throw contracts::RecoveryError::storeUnavailable(*written.failure);
    }
  }

 private:
  struct State {
    std::vector<T> entries;
    std::vector<std::string> texts;              // writeJson of each record
    std::optional<IndexJournal::Stamps> stamps;  // none: read from disk next time
  };

  T decoded(const contracts::Json& json, const std::string& file, const std::string& where) {
    try {
      return decode_(json);
    } catch (const contracts::DecodeError& error) {
      detail::throwUnreadable(file, where + ": " + error.what());
    }
  }

  std::string textOf(const T& record) const {
    contracts::Json json = record.toJson();
    std::string text = contracts::writeJson(json);
    // The writer answers "{}" for a value it cannot write; writing that would
    // silently empty a record.
    if (text == "{}" && !(json.is_object() && json.empty())) {
      throw contracts::RecoveryError::storeUnavailable(
          "cannot write " + storage::lastComponent(files_.snapshotPath()) +
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
    std::optional<std::string> failure;          // the error's text
    std::optional<IndexJournal::Stamps> stamps;  // the files', once written
  };

  // Appends `lines` to the journal, or with `snapshot` set compacts to it.
  // Only ever run by one thread at a time: with writing_ set, or under the
  // lock with no write under way.
  Written write(const std::string& lines, const std::optional<std::string>& snapshot) {
    try {
      if (snapshot) {
        files_.compact(*snapshot);
      } else {
        files_.append(lines);
      }
    } catch (const storage::FileOpError& error) {
      return {"cannot write " + storage::lastComponent(files_.snapshotPath()) + ": " +
                  error.description(),
              {}};
    }
    return {std::nullopt, files_.stamps()};
  }

  // Records, under the lock, how the write of every change up to `through`
  // ended, and wakes whoever waits for it.
  void settle(std::uint64_t through, const Written& written) {
    if (written.failure) {
      // Memory may hold changes the files never will: every waiting writer
      // fails, and the next call reads the files again.
      failedThrough_ = changed_;
      failure_ = *written.failure;
      state_.reset();
      pending_.clear();
      ++generation_;
    } else {
      written_ = through;
      if (state_) {
        state_->stamps = written.stamps;
      }
    }
    writable_.notify_all();
  }

  // Returns once a write made after this thread's change has finished, and
  // throws its error when it failed. The first writer to find no write under
  // way writes every change made so far, with the lock let go meanwhile.
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
      std::string lines = std::move(pending_);
      pending_.clear();
      std::optional<std::string> snapshot;
      if (files_.compactionDue(lines.size(), journalLimit_)) {
        snapshot = assemble();
      }
      hold.unlock();
      Written written = write(lines, snapshot);
      hold.lock();
      writing_ = false;
      settle(through, written);
    }
  }

  IndexJournal files_;
  Decode decode_;
  std::size_t journalLimit_;
  std::optional<State> state_;
  // The journal lines of the changes made since the last write began.
  std::string pending_;
  // Changes are numbered as they are made; all below are guarded by the owner's lock.
  std::uint64_t changed_ = 0;        // the last change made in memory
  std::uint64_t written_ = 0;        // the last change the file holds
  std::uint64_t failedThrough_ = 0;  // changes whose write failed
  std::string failure_;              // that write's error
  bool writing_ = false;             // a write is under way, without the lock
  std::uint64_t generation_ = 1;
  std::condition_variable writable_;
};

}  // namespace vorna::recovery
