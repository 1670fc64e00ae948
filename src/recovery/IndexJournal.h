#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "contracts/Json.h"
#include "recovery/FileStamp.h"
#include "storage/FileSystem.h"

namespace vorna::recovery {

// The files of one list index: the snapshot `X.json`, a JSON array of records
// exactly as a whole rewrite writes it, and beside it the journal `X.journal`
// of the changes made since, so that a change costs one append and one flush
// however long the list is.
//
// The journal is text, one JSON object per line, each line ended by "\n":
//   {"snapshot":"<SHA-256 of the snapshot's bytes>"}   (null: no snapshot)
//   {"append":<record>}
//   {"at":<index>,"change":<record>}
// The list is the snapshot's records with the lines after the first applied in
// order. A store without a journal is read from its snapshot alone.
//
// The first line ties the journal to the one snapshot it continues. A
// compaction first puts a new snapshot in place and then removes the journal;
// a power cut between the two leaves a journal whose lines the snapshot
// already holds, and its first line, naming other bytes, says so: it is
// ignored, and replaced by the next append. Replaying by record key instead
// would not do: a rewrite may drop records, and replaying their appends would
// bring them back. Where the new snapshot would carry the very bytes a
// leftover journal names, that journal is removed before the snapshot is
// written, so no journal can ever be taken to continue a snapshot it did not.
//
// A last line cut short by a power cut (no "\n", or not JSON) was never
// answered; it is ignored, and the next write compacts rather than append
// after it. Any other line that is not a change is an error, never skipped.
//
// Not thread-safe: its owner calls it under its lock, or from the one thread
// that writes.
class IndexJournal {
 public:
  // What both files' statuses say; equal while neither changed.
  struct Stamps {
    std::optional<FileStamp> snapshot;  // none: absent
    std::optional<FileStamp> journal;   // none: absent
    bool settled() const;
    bool operator==(const Stamps&) const = default;
  };

  // One line after the first: an append when `at` is empty.
  struct Change {
    std::optional<std::size_t> at;
    contracts::Json record;
    std::size_t line = 0;  // 1-based, for errors
  };

  struct Contents {
    contracts::Json snapshot = contracts::Json::array();
    std::vector<Change> changes;
  };

  IndexJournal(std::string snapshotPath, storage::FileSystem& fs);

  const std::string& snapshotPath() const { return snapshotPath_; }
  const std::string& journalPath() const { return journalPath_; }

  // Both files' stamps; nothing when a status fails otherwise than ENOENT,
  // which is left for read() to report.
  std::optional<Stamps> stamps() const;

  // Reads both files. Errors, as contracts::RecoveryError storeUnavailable:
  // "cannot read {file}: {error}"; "recovery index {file} is unreadable and
  // was left untouched: {why}", with why "not valid JSON" or "expected an
  // array" for the snapshot, "line {n}: ..." for the journal.
  Contents read();

  // The journal lines of one change, ready to be appended.
  static std::string appendLine(std::string_view recordText);
  static std::string changeLine(std::size_t at, std::string_view recordText);

  // Whether `bytes` more of lines should rather be written as a new snapshot:
  // the journal would outgrow both its snapshot and `limit`, or it ends in a
  // torn line.
  bool compactionDue(std::size_t bytes, std::size_t limit) const;

  // Appends `lines` durably after the last read or write: to the journal when
  // it continues the snapshot, else to a new journal that replaces it
  // atomically. storage::FileOpError on failure; then read() must come first.
  void append(std::string_view lines);

  // Makes `text` the snapshot durably and retires the journal, in the order
  // the comment above gives. storage::FileOpError on failure; then read()
  // must come first, unless the next write is again a compaction.
  void compact(std::string_view text);

 private:
  enum class Journal { absent, continues, torn, stale };

  std::string headerLine(const std::optional<std::string>& snapshotHash) const;
  // The first line of the journal on disk, "" when there is none.
  std::string journalHeader() const;
  // Parses the journal's text, setting journal_ and journalBytes_.
  std::vector<Change> parseJournal(std::string_view text,
                                   const std::optional<std::string>& snapshotHash);

  std::string snapshotPath_;
  std::string journalPath_;
  storage::FileSystem& fs_;
  // Where the files stand after the last read or write.
  std::optional<std::string> snapshotHash_;  // none: no snapshot
  std::size_t snapshotBytes_ = 0;
  Journal journal_ = Journal::absent;
  std::size_t journalBytes_ = 0;
};

}  // namespace vorna::recovery
