#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <string_view>

#include "storage/FileSystem.h"

namespace vorna::storage {

// The one way the host makes a change on disk that must outlive a power cut,
// and the only code that flushes (fsync). Each operation writes, flushes and
// renames in an order after which a power cut at any instant leaves either
// what was there before or what the operation promises, never a part, and it
// flushes every folder the promise needs.
//
// What a flush buys, which is what tests/durability models and checks for
// every sequence of these operations the host runs:
//  - flushing a file makes its bytes durable, not its name;
//  - flushing a folder makes its entries durable; a new folder is an entry of
//    its parent, so it lasts only once its parent is flushed;
//  - a rename or exchange is one atomic change: once any folder it touched is
//    flushed, all of it is durable;
//  - the changes of one folder reach the disk in the order they were made, so
//    a flushed change carries every earlier change of that folder with it.
//
// Errors are FileOpError; a folder that cannot be flushed is an error too
// ("open" or "fsync" on the folder), since a change reported as made must last.
// A failed operation removes what it created itself and leaves what it was
// given where it was, with two exceptions that say so below. Holds no state
// of its own; any thread may call, and callers serialise changes to the same
// paths.
class DurableChanges {
 public:
  explicit DurableChanges(FileSystem& fs = FileSystem::real()) : fs_(fs) {}

  // Makes `path` a new file (never an existing one) holding `bytes` with
  // `mode`, flushes it, then flushes its folder. Errors: "open" (EEXIST when
  // anything is at `path`), "write", shortWrite, "fsync"; after a failure past
  // the open the new file is removed again.
  void createExclusively(const std::string& path, std::string_view bytes, mode_t mode);

  // As createExclusively, but leaves the folder unflushed: the bytes are
  // durable, the name only once a later change in the same folder is flushed.
  // For files that a later operation of the same change puts in place: the
  // staged bytes of a save, a payload before its sidecar, a sidecar before its
  // payload.
  void stage(const std::string& path, std::string_view bytes, mode_t mode);

  // Replaces the whole content of `path` (made when missing): the bytes are
  // staged as ".tmp-{UUID}" beside it, renamed over it, and the folder is
  // flushed. A reader, and a power cut, finds the old or the new content, never
  // a part. Errors as stage for the temporary file, "rename" on it, and the
  // folder's flush; the temporary file is removed after any failure, but when
  // only the folder's flush failed the new content is already in place.
  void replace(const std::string& path, std::string_view bytes, mode_t mode);

  // Adds `bytes` at the end of the existing file `path` (O_APPEND) and flushes
  // it. A power cut may leave any prefix of `bytes` after the old content, but
  // never less once this returned. Errors: "open" (ENOENT when there is no
  // file), "write", shortWrite, "fsync"; after a failure past the open, part
  // of `bytes` may be there.
  void append(const std::string& path, std::string_view bytes);

  // Exchanges the entries `a` and `b` in one atomic step (renameat2 with
  // RENAME_EXCHANGE). Flushes nothing: an exchange is only ever a step of a
  // save, whose last step moves one of the two files out of this folder and
  // flushes where it lands, which carries the exchange. Error:
  // "renameat2(RENAME_EXCHANGE)" on `a` (ENOENT when either is missing, EXDEV
  // across file systems, EINVAL where the file system cannot exchange). There
  // is deliberately no non-atomic fallback.
  void exchange(const std::string& a, const std::string& b);

  enum class AcrossFileSystems { copy, refuse };

  // Moves the file or folder `source` to `destination`, whose folder exists and
  // where nothing may be, not even what appeared there after the caller looked.
  // Within one file system: one rename that never replaces (where the file
  // system cannot do that, EINVAL, a look first leaves only the moment between
  // look and rename), then the destination's folder is flushed, which makes the
  // whole rename durable.
  // Across file systems, when `across` allows it and `source` is a regular
  // file: a copy (mode 0644) is made and flushed, the destination's folder is
  // flushed, and only then is the source removed and its folder flushed.
  // Errors: wouldOverwrite(destination) when anything is there, "rename" on
  // `source` (EXDEV across file systems otherwise), the copy's errors, and the
  // folders' flushes; the item is then back at `source`, except when the
  // source could not be removed ("unlink") or its folder flushed after a copy:
  // the copy then stays.
  void moveIntoFolder(const std::string& source, const std::string& destination,
                      AcrossFileSystems across = AcrossFileSystems::copy);

  // Makes the folder `path` (absolute) and every missing folder above it, each
  // with `mode` (less the umask) and flushed in its parent as soon as it is
  // made. An existing folder is success. Error: "mkdir" naming the first
  // folder that could not be made; something other than a folder in the way
  // fails with EEXIST, one in the way of a folder above with ENOTDIR. `made`,
  // when given, is called with each folder this call made, as it is made.
  void makeFolder(const std::string& path, mode_t mode,
                  const std::function<void(const std::string&)>& made = nullptr);

 private:
  // Opens `path` exclusively and writes and flushes `bytes`; removes the file
  // again when a step after the open fails.
  void writeNewFile(const std::string& path, std::string_view bytes, mode_t mode);
  // renameat2(RENAME_NOREPLACE); false with errno set when it failed for
  // another reason than something at `destination` (wouldOverwrite).
  bool renameWithoutReplacing(const std::string& source, const std::string& destination);
  // Flushes the entries of `folder`. Errors: "open", "fsync" on the folder.
  void flushFolder(const std::string& folder);
  // Flushes `parent` after `folder` was made in it; removes `folder` again
  // when that fails.
  void flushInParent(const std::string& folder, const std::string& parent);

  FileSystem& fs_;
};

}  // namespace vorna::storage
