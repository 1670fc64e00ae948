#include "storage/Fingerprint.h"

#include <openssl/evp.h>

#include <cerrno>
#include <ctime>
#include <memory>

#include "storage/DurableFiles.h"
#include "storage/FileOpError.h"
#include "storage/UniqueFd.h"

namespace vorna::storage {
namespace {

constexpr size_t kReadBufferSize = 1 << 20;

struct DigestContextDeleter {
  void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};
using DigestContext = std::unique_ptr<EVP_MD_CTX, DigestContextDeleter>;

// One SHA-256 computation through EVP, which uses the CPU's SHA instructions.
class Sha256 {
 public:
  Sha256() : context_(EVP_MD_CTX_new()) {
    if (!context_ || EVP_DigestInit_ex(context_.get(), EVP_sha256(), nullptr) != 1) {
      throw std::bad_alloc();
    }
  }
  void update(const void* data, size_t size) { EVP_DigestUpdate(context_.get(), data, size); }
  Fingerprint finish() {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_DigestFinal_ex(context_.get(), digest, &length);
    static constexpr char kHex[] = "0123456789abcdef";
    std::string hex(static_cast<size_t>(length) * 2, '0');
    for (unsigned int i = 0; i < length; ++i) {
      hex[2 * i] = kHex[digest[i] >> 4];
      hex[2 * i + 1] = kHex[digest[i] & 0x0f];
    }
    return Fingerprint{std::move(hex)};
  }

 private:
  DigestContext context_;
};

void sleepNanos(uint64_t nanos) {
  timespec request{static_cast<time_t>(nanos / 1'000'000'000),
                   static_cast<long>(nanos % 1'000'000'000)};
  timespec remaining{};
  while (::nanosleep(&request, &remaining) != 0 && errno == EINTR) {
    request = remaining;
  }
}

}  // namespace

Fingerprint Fingerprint::ofBytes(std::string_view bytes) {
  Sha256 sha;
  sha.update(bytes.data(), bytes.size());
  return sha.finish();
}

contracts::Json Fingerprint::toJson() const { return contracts::Json{{"hex", hex}}; }

std::optional<Fingerprint> Fingerprint::fromJson(const contracts::Json& json) {
  if (!json.is_object()) {
    return std::nullopt;
  }
  auto it = json.find("hex");
  if (it == json.end() || !it->is_string()) {
    return std::nullopt;
  }
  return Fingerprint{it->get<std::string>()};
}

FileFingerprint fingerprintFile(const std::string& path, FileSystem& fs) {
  UniqueFd fd = openRegularFile(path, fs);
  // One buffer per thread: a page read allocates nothing, and memory stays
  // bounded whatever the file's size.
  thread_local std::unique_ptr<char[]> buffer(new char[kReadBufferSize]);
  Sha256 sha;
  int64_t total = 0;
  for (;;) {
    ssize_t got = fs.read(fd.get(), buffer.get(), kReadBufferSize);
    if (got < 0) {
      if (errno == EINTR) {
        continue;
      }
      throw FileOpError::fromErrno("read", path);
    }
    if (got == 0) {
      break;
    }
    sha.update(buffer.get(), static_cast<size_t>(got));
    total += got;
  }
  return {sha.finish(), total};
}

StabilizedFingerprint stabilizedFingerprint(const std::string& path, uint64_t intervalNanos,
                                            int attempts, FileSystem& fs) {
  int readings = attempts < 1 ? 1 : attempts;
  FileFingerprint previous;
  try {
    previous = fingerprintFile(path, fs);
  } catch (const FileOpError&) {
    return {};
  }
  for (int reading = 2; reading <= readings; ++reading) {
    if (intervalNanos != 0) {
      sleepNanos(intervalNanos);
    }
    FileFingerprint current;
    try {
      current = fingerprintFile(path, fs);
    } catch (const FileOpError&) {
      return {previous.fingerprint, previous.byteCount, false};
    }
    if (current.fingerprint == previous.fingerprint) {
      return {current.fingerprint, current.byteCount, true};
    }
    previous = std::move(current);
  }
  return {previous.fingerprint, previous.byteCount, false};
}

}  // namespace vorna::storage
