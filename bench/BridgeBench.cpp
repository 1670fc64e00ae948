// The file bridge against the plainest way of doing the same work in the same
// process:
//   get_64m_vs_raw       GET file of a 64 MiB non-page through handle against
//                        reading it once and hashing it with OpenSSL; raw time
//                        divided by bridge time (1.0: no overhead).
//   put_1m_vs_naive      a full save of 1 MiB (draft, exchange, retention,
//                        checkpoint) against the naive adapter alone; bridge
//                        time divided by naive time (the price of never losing
//                        a version).
//   list_10k_vs_readdir  GET list of 10,000 entries against readdir plus the
//                        same natural sort; bridge time divided by plain time.
// Also the first and second GET of a 4 MiB page: only the first retains a
// load checkpoint.
#include <dirent.h>
#include <fcntl.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "bridge/FileBridge.h"
#include "bridge/NaturalOrder.h"
#include "contracts/BridgeRequest.h"
#include "recovery/LocalRecoveryService.h"
#include "storage/DurableChanges.h"
#include "storage/Fingerprint.h"
#include "storage/NaiveAdapter.h"
#include "support/BenchSupport.h"

using namespace vorna;
using namespace vorna::bench;

namespace {

class NoDesktop final : public bridge::DesktopActions {
 public:
  void reveal(const std::string&) override {}
  void open(const std::string&) override {}
};

std::string ms(double seconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%.2f ms", seconds * 1000);
  return text;
}

std::string ratio(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.3f", value);
  return text;
}

std::string patterned(size_t size, int version) {
  std::string bytes(size, ' ');
  for (size_t i = 0; i < size; ++i) {
    bytes[i] = static_cast<char>('a' + (i * 7 + static_cast<size_t>(version)) % 26);
  }
  std::string stamp = "<!-- version " + std::to_string(version) + " -->";
  bytes.replace(0, std::min(stamp.size(), size), stamp.substr(0, size));
  return bytes;
}

contracts::BridgeRequest request(const std::string& method, const std::string& op,
                                 const std::string& path,
                                 std::map<std::string, std::string> headers = {},
                                 contracts::Bytes body = {}) {
  return contracts::BridgeRequest::make(method, op, {{"path", path}}, headers, std::move(body));
}

// The baseline of a file read: one buffer sized from fstat, one pass of
// reads, one SHA-256 over the same bytes.
std::string readAndHash(const std::string& path) {
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    throw std::runtime_error("cannot open " + path);
  }
  struct stat info {};
  ::fstat(fd, &info);
  std::string bytes(static_cast<size_t>(info.st_size), '\0');
  size_t used = 0;
  while (used < bytes.size()) {
    ssize_t got = ::read(fd, bytes.data() + used, bytes.size() - used);
    if (got <= 0) {
      break;
    }
    used += static_cast<size_t>(got);
  }
  ::close(fd);
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  EVP_Digest(bytes.data(), used, digest, &length, EVP_sha256(), nullptr);
  return std::string(reinterpret_cast<char*>(digest), length);
}

std::vector<std::string> readdirSorted(const std::string& folder) {
  std::vector<std::string> names;
  DIR* dir = ::opendir(folder.c_str());
  while (dirent* entry = ::readdir(dir)) {
    if (entry->d_name[0] != '.') {
      names.emplace_back(entry->d_name);
    }
  }
  ::closedir(dir);
  bridge::sortNaturally(names);
  return names;
}

void benchGet(bridge::FileBridge& bridge, recovery::LocalRecoveryService& service,
              const std::string& root) {
  const std::string big = root + "/video.bin";
  storage::DurableChanges().createExclusively(big, patterned(64 << 20, 1), 0644);
  readAndHash(big);  // both sides read from the page cache
  std::vector<double> raw;
  std::vector<double> bridged;
  for (int run = 0; run < 9; ++run) {
    raw.push_back(timeRuns(1, [&] { readAndHash(big); })[0]);
    bridged.push_back(timeRuns(1, [&] {
      if (bridge.handle(request("GET", "file", big)).status != 200) {
        throw std::runtime_error("GET file failed");
      }
    })[0]);
  }
  printRow("GET file 64 MiB, raw read + SHA-256 (median of 9)", ms(median(raw)));
  printRow("GET file 64 MiB through handle (median of 9)", ms(median(bridged)));
  printBench("get_64m_vs_raw", median(raw) / median(bridged));

  const std::string page = root + "/page.html";
  storage::DurableChanges().createExclusively(page, patterned(4 << 20, 2), 0644);
  readAndHash(page);
  size_t before = service.retentionStore().entries().size();
  double first = timeRuns(1, [&] { bridge.handle(request("GET", "file", page)); })[0];
  size_t afterFirst = service.retentionStore().entries().size();
  double second = timeRuns(1, [&] { bridge.handle(request("GET", "file", page)); })[0];
  size_t afterSecond = service.retentionStore().entries().size();
  printRow("GET 4 MiB page, first (retains a checkpoint)", ms(first));
  printRow("GET 4 MiB page, second", ms(second));
  printRow("checkpoints retained by first / second",
           std::to_string(afterFirst - before) + " / " + std::to_string(afterSecond - afterFirst));
  printBench("get_4m_page_first_ms", first * 1000);
  printBench("get_4m_page_second_ms", second * 1000);
}

void benchPut(bridge::FileBridge& bridge, const std::string& root, const std::string& scratch) {
  constexpr size_t kSize = 1 << 20;
  constexpr int kRuns = 15;
  const std::string page = root + "/save.html";
  std::string current = patterned(kSize, 0);
  storage::DurableChanges().createExclusively(page, current, 0644);
  std::vector<double> bridged;
  for (int run = 1; run <= kRuns; ++run) {
    std::string next = patterned(kSize, run);
    std::string base = storage::Fingerprint::ofBytes(current).hex;
    bridged.push_back(timeRuns(1, [&] {
      if (bridge.handle(request("PUT", "file", page, {{"X-VN-Base", base}}, next)).status != 200) {
        throw std::runtime_error("PUT file failed");
      }
    })[0]);
    current = std::move(next);
  }

  storage::RecoveryStore unused(scratch + "/naive-store");
  storage::NaiveAdapter naive(unused);
  const std::string plain = scratch + "/naive.html";
  current = patterned(kSize, 0);
  storage::DurableChanges().createExclusively(plain, current, 0644);
  std::vector<double> naiveTimes;
  for (int run = 1; run <= kRuns; ++run) {
    std::string next = patterned(kSize, run);
    auto expected = storage::Fingerprint::ofBytes(current);
    naiveTimes.push_back(timeRuns(1, [&] { naive.save(plain, next, expected); })[0]);
    current = std::move(next);
  }
  printRow("PUT file 1 MiB through handle (median of 15)", ms(median(bridged)));
  printRow("naive adapter save 1 MiB (median of 15)", ms(median(naiveTimes)));
  printRow("bridge / naive", ratio(median(bridged) / median(naiveTimes)));
  printBench("put_1m_vs_naive", median(bridged) / median(naiveTimes));
}

void benchList(bridge::FileBridge& bridge, const std::string& root) {
  const std::string folder = root + "/many";
  ::mkdir(folder.c_str(), 0755);
  for (int i = 0; i < 10000; ++i) {
    std::string name = folder + "/page" + std::to_string(i) + (i % 3 == 0 ? ".html" : ".md");
    int fd = ::open(name.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    ::close(fd);
  }
  readdirSorted(folder);
  std::vector<double> bridged;
  std::vector<double> plain;
  for (int run = 0; run < 7; ++run) {
    plain.push_back(timeRuns(1, [&] { readdirSorted(folder); })[0]);
    bridged.push_back(timeRuns(1, [&] {
      if (bridge.handle(request("GET", "list", folder)).status != 200) {
        throw std::runtime_error("GET list failed");
      }
    })[0]);
  }
  printRow("GET list of 10,000 entries (median of 7)", ms(median(bridged)));
  printRow("readdir + natural sort (median of 7)", ms(median(plain)));
  printBench("list_10k_ms", median(bridged) * 1000);
  printBench("list_10k_vs_readdir", median(bridged) / median(plain));
}

}  // namespace

int main() {
  ScratchDir scratch("bridge");
  const std::string root = scratch.path() + "/w";
  ::mkdir(root.c_str(), 0755);
  auto service = std::make_shared<recovery::LocalRecoveryService>(root, scratch.path() + "/store",
                                                                  20, 86400.0);
  bridge::BridgeEnvironment environment;
  environment.desktop = std::make_shared<NoDesktop>();
  bridge::FileBridge bridge(root, service, environment);

  benchGet(bridge, *service, root);
  benchPut(bridge, root, scratch.path());
  benchList(bridge, root);
  return 0;
}
