#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "contracts/IsoDate.h"

namespace vorna::recovery {

// What the recovery service takes from its surroundings besides the file
// system: the clock, where its diagnostics go and where the desktop keeps
// per-user data. The defaults are the real ones; tests replace them so that
// retention ages, log lines and volume choices can be checked without waiting
// or touching the user's own folders.
struct RecoveryEnvironment {
  // The time stamped on records and the retention cutoff; on a whole second so
  // that records read back equal to themselves.
  std::function<contracts::Timestamp()> now = contracts::wholeSecondsNow;
  // Receives each diagnostic as one whole line: "Vorna recovery: ", the
  // message and "\n". The default writes it to standard error in one write.
  std::function<void(std::string_view line)> log = writeToStandardError;
  // The per-user data folder ($XDG_DATA_HOME when absolute, else
  // ~/.local/share); nothing when it cannot be told.
  std::function<std::optional<std::string>()> userDataDirectory = xdgDataHome;
  // The mount table that says which mount point holds a path.
  std::string mountTable = "/proc/self/mountinfo";
  // The pause between two readings of an orphaned swap file that may still be
  // written, in nanoseconds: the rhythm of the safe adapter's own settling.
  std::uint64_t swapSettleInterval = 8'000'000;
  // How many bytes an index's journal may hold, or its snapshot's size when
  // that is more, before the next change compacts it into a new snapshot.
  std::size_t indexJournalLimit = 64 * 1024;

  static void writeToStandardError(std::string_view line);
  static std::optional<std::string> xdgDataHome();
};

// "Vorna recovery: " + message + "\n".
std::string recoveryLogLine(std::string_view message);

}  // namespace vorna::recovery
