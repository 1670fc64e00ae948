#include "recovery/IndexJournal.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>

#include "recovery/IndexFiles.h"
#include "storage/DurableChanges.h"
#include "storage/FileOpError.h"
#include "storage/Fingerprint.h"
#include "storage/PathNames.h"
#include "storage/UniqueFd.h"

namespace vorna::recovery {
namespace {

constexpr std::string_view kSnapshotExtension = ".json";

std::string journalPathOf(const std::string& snapshotPath) {
  std::string stem = snapshotPath;
  if (stem.ends_with(kSnapshotExtension)) {
    stem.resize(stem.size() - kSnapshotExtension.size());
  }
  return stem + ".journal";
}

// The status of `path`; false only when it is absent.
bool statusOf(const std::string& path, storage::FileSystem& fs, std::optional<FileStamp>& out) {
  out = FileStamp::of(path, fs);
  return out.has_value() || errno == ENOENT;
}

// The text of `path`, nothing when it is absent; "cannot read" otherwise.
std::optional<std::string> readIfPresent(const std::string& path, storage::FileSystem& fs) {
  if (!indexExists(path, fs)) {
    return std::nullopt;
  }
  return detail::readIndexText(path, fs);
}

}  // namespace

bool IndexJournal::Stamps::settled() const {
  return (!snapshot || snapshot->settled()) && (!journal || journal->settled());
}

IndexJournal::IndexJournal(std::string snapshotPath, storage::FileSystem& fs)
    : snapshotPath_(std::move(snapshotPath)), journalPath_(journalPathOf(snapshotPath_)), fs_(fs) {}

std::optional<IndexJournal::Stamps> IndexJournal::stamps() const {
  Stamps stamps;
  if (!statusOf(snapshotPath_, fs_, stamps.snapshot) ||
      !statusOf(journalPath_, fs_, stamps.journal)) {
    return std::nullopt;
  }
  return stamps;
}

IndexJournal::Contents IndexJournal::read() {
  journal_ = Journal::absent;
  journalBytes_ = 0;
  snapshotHash_.reset();
  snapshotBytes_ = 0;
  Contents contents;
  std::optional<std::string> snapshot = readIfPresent(snapshotPath_, fs_);
  if (snapshot) {
    std::optional<contracts::Json> json = contracts::parseJson(*snapshot);
    if (!json) {
      detail::throwUnreadable(snapshotPath_, "not valid JSON");
    }
    if (!json->is_array()) {
      detail::throwUnreadable(snapshotPath_, "expected an array");
    }
    contents.snapshot = std::move(*json);
  }
  std::optional<std::string> journal = readIfPresent(journalPath_, fs_);
  std::optional<std::string> hash;
  if (snapshot) {
    hash = storage::Fingerprint::ofBytes(*snapshot).hex;
  }
  if (journal) {
    contents.changes = parseJournal(*journal, hash);
  }
  snapshotHash_ = std::move(hash);
  snapshotBytes_ = snapshot ? snapshot->size() : 0;
  return contents;
}

std::vector<IndexJournal::Change> IndexJournal::parseJournal(
    std::string_view text, const std::optional<std::string>& snapshotHash) {
  std::vector<Change> changes;
  journalBytes_ = text.size();
  journal_ = Journal::continues;
  size_t start = 0;
  for (size_t line = 1; start < text.size(); ++line) {
    const size_t end = text.find('\n', start);
    const bool last = end == std::string_view::npos || end + 1 == text.size();
    std::optional<contracts::Json> json;
    if (end != std::string_view::npos) {
      json = contracts::parseJson(text.substr(start, end - start));
    }
    if (!json) {
      if (last) {
        // Cut short by a power cut before its writer was answered.
        journal_ = Journal::torn;
        return changes;
      }
      detail::throwUnreadable(journalPath_, "line " + std::to_string(line) + ": not valid JSON");
    }
    start = end + 1;
    if (line == 1) {
      if (!json->is_object() || !json->contains("snapshot")) {
        detail::throwUnreadable(journalPath_, "line 1: expected the snapshot's hash");
      }
      const contracts::Json& named = (*json)["snapshot"];
      const bool continues = named.is_null() ? !snapshotHash
                                             : named.is_string() && snapshotHash &&
                                                   named.get<std::string>() == *snapshotHash;
      if (!continues) {
        // Left by a compaction cut short: the snapshot holds all of it.
        journal_ = Journal::stale;
        return {};
      }
      continue;
    }
    Change change{.at = std::nullopt, .record = {}, .line = line};
    if (json->is_object() && json->size() == 1 && json->contains("append")) {
      change.record = std::move((*json)["append"]);
    } else if (json->is_object() && json->size() == 2 && json->contains("change") &&
               json->contains("at") && (*json)["at"].is_number_unsigned()) {
      change.at = (*json)["at"].get<std::size_t>();
      change.record = std::move((*json)["change"]);
    } else {
      detail::throwUnreadable(journalPath_,
                              "line " + std::to_string(line) + ": expected an append or a change");
    }
    changes.push_back(std::move(change));
  }
  if (journal_ == Journal::continues && changes.empty() && text.empty()) {
    journal_ = Journal::torn;
  }
  return changes;
}

std::string IndexJournal::appendLine(std::string_view recordText) {
  std::string line = "{\"append\":";
  line += recordText;
  line += "}\n";
  return line;
}

std::string IndexJournal::changeLine(std::size_t at, std::string_view recordText) {
  std::string line = "{\"at\":" + std::to_string(at) + ",\"change\":";
  line += recordText;
  line += "}\n";
  return line;
}

std::string IndexJournal::headerLine(const std::optional<std::string>& snapshotHash) const {
  return snapshotHash ? "{\"snapshot\":\"" + *snapshotHash + "\"}\n" : "{\"snapshot\":null}\n";
}

bool IndexJournal::compactionDue(std::size_t bytes, std::size_t limit) const {
  return journal_ == Journal::torn || (journal_ == Journal::continues &&
                                       journalBytes_ + bytes > std::max(snapshotBytes_, limit));
}

void IndexJournal::append(std::string_view lines) {
  storage::DurableChanges durable(fs_);
  if (journal_ == Journal::continues) {
    durable.append(journalPath_, lines);
    journalBytes_ += lines.size();
    return;
  }
  // A new journal, made whole and put in place by one rename, so that it is
  // never seen without its first line.
  std::string text = headerLine(snapshotHash_);
  text += lines;
  durable.replace(journalPath_, text, 0600);
  journal_ = Journal::continues;
  journalBytes_ = text.size();
}

std::string IndexJournal::journalHeader() const {
  storage::UniqueFd fd(fs_, fs_.open(journalPath_, O_RDONLY, 0));
  if (!fd) {
    return "";
  }
  std::string header(128, '\0');
  ssize_t got = fs_.read(fd.get(), header.data(), header.size());
  header.resize(got > 0 ? static_cast<size_t>(got) : 0);
  return header.substr(0, header.find('\n') + 1);
}

void IndexJournal::compact(std::string_view text) {
  const std::string hash = storage::Fingerprint::ofBytes(text).hex;
  // A journal that names these very bytes must be gone before they are the
  // snapshot; the flush of the snapshot's folder then carries its removal.
  const bool namesNewSnapshot = journalHeader() == headerLine(hash);
  if (namesNewSnapshot && fs_.unlink(journalPath_) != 0 && errno != ENOENT) {
    throw storage::FileOpError::fromErrno("unlink", journalPath_);
  }
  storage::DurableChanges(fs_).replace(snapshotPath_, text, 0600);
  snapshotHash_ = hash;
  snapshotBytes_ = text.size();
  journalBytes_ = 0;
  journal_ = Journal::absent;
  // Left in place the journal no longer continues the snapshot; unflushed, its
  // removal lasts with the next change of the folder. Either way it is stale.
  if (!namesNewSnapshot && fs_.unlink(journalPath_) != 0 && errno != ENOENT) {
    journal_ = Journal::stale;
  }
}

}  // namespace vorna::recovery
