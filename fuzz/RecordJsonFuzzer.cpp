// Any JSON text through the decoder of every record, sidecar and index entry.
// A decoder either refuses with DecodeError (any other exception escapes and
// counts as a crash) or returns a record that survives being written out and
// read back unchanged, as the index files and sidecars require.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string_view>

#include "contracts/CandidateRecord.h"
#include "contracts/ConflictRecord.h"
#include "contracts/DecodeError.h"
#include "contracts/DraftRecord.h"
#include "contracts/Json.h"
#include "contracts/OperationRecord.h"
#include "recovery/ConflictEntry.h"
#include "recovery/DraftEntry.h"
#include "recovery/Identity.h"
#include "storage/Fingerprint.h"
#include "storage/RecoveryEntry.h"

using namespace vorna;

namespace {

template <typename Record>
void roundTrip(const contracts::Json& json) {
  std::optional<Record> record;
  try {
    record.emplace(Record::fromJson(json));
  } catch (const contracts::DecodeError&) {
    return;
  }
  auto written = contracts::writeJson(record->toJson());
  auto reread = contracts::parseJson(written);
  if (!reread) {
    std::abort();  // the one writer produced text its own reader refuses
  }
  if (!(Record::fromJson(*reread) == *record)) {
    std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  auto json = contracts::parseJson(std::string_view(reinterpret_cast<const char*>(data), size));
  if (!json) {
    return 0;
  }
  roundTrip<contracts::DraftRecord>(*json);
  roundTrip<contracts::ConflictRecord>(*json);
  roundTrip<contracts::CandidateRecord>(*json);
  roundTrip<contracts::OperationRecord>(*json);
  roundTrip<contracts::OperationRecord::Step>(*json);
  roundTrip<recovery::DraftEntry>(*json);
  roundTrip<recovery::ConflictEntry>(*json);
  roundTrip<recovery::Identity>(*json);
  roundTrip<storage::RecoveryEntry>(*json);
  if (auto fingerprint = storage::Fingerprint::fromJson(*json)) {
    if (storage::Fingerprint::fromJson(fingerprint->toJson()) != fingerprint) {
      std::abort();
    }
  }
  return 0;
}
