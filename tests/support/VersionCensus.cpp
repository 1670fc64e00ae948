#include "support/VersionCensus.h"

#include <dirent.h>
#include <sys/stat.h>

#include <fstream>
#include <sstream>

#include "contracts/Json.h"
#include "storage/Fingerprint.h"

namespace vorna::testing {
namespace {

std::optional<std::string> readRegularFile(const std::string& path, struct stat& st) {
  if (::lstat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) {
    return std::nullopt;
  }
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    return std::nullopt;
  }
  std::ostringstream content;
  content << in.rdbuf();
  return content.str();
}

std::vector<std::string> namesIn(const std::string& folder) {
  std::vector<std::string> names;
  if (DIR* dir = ::opendir(folder.c_str())) {
    while (dirent* entry = ::readdir(dir)) {
      std::string name = entry->d_name;
      if (name != "." && name != "..") {
        names.push_back(std::move(name));
      }
    }
    ::closedir(dir);
  }
  return names;
}

}  // namespace

std::string versionOf(const std::string& bytes) {
  return storage::Fingerprint::ofBytes(bytes).hex;
}

VersionCensus::VersionCensus(std::string pagePath, std::string storeDirectory,
                             std::vector<std::string> otherFolders)
    : pagePath_(std::move(pagePath)),
      pageFolder_(pagePath_.substr(0, pagePath_.rfind('/'))),
      storeDirectory_(std::move(storeDirectory)),
      otherFolders_(std::move(otherFolders)) {}

void VersionCensus::take() {
  struct stat st {};
  page_ = readRegularFile(pagePath_, st);
  pageFile_.reset();
  if (page_) {
    pageFile_ = File{versionOf(*page_), st.st_ino, st.st_size};
  }

  swapFiles_.clear();
  for (const std::string& name : namesIn(pageFolder_)) {
    if (name.starts_with(".vn-swap-")) {
      if (auto bytes = readRegularFile(pageFolder_ + "/" + name, st)) {
        swapFiles_[name] = File{versionOf(*bytes), st.st_ino, st.st_size};
      }
    }
  }

  for (const std::string& name : namesIn(storeDirectory_)) {
    std::string path = storeDirectory_ + "/" + name;
    if (name.ends_with(".bin") && !payloads_.contains(name)) {
      if (auto bytes = readRegularFile(path, st)) {
        payloads_[name] = File{versionOf(*bytes), st.st_ino, st.st_size};
      }
    } else if (name.ends_with(".json") && !sidecars_[name].decoded) {
      std::optional<std::string> text = readRegularFile(path, st);
      std::optional<contracts::Json> json = text ? contracts::parseJson(*text) : std::nullopt;
      if (json && json->is_object() && json->contains("payloadPath")) {
        Sidecar& sidecar = sidecars_[name];
        sidecar.decoded = true;
        std::string payloadPath = (*json)["payloadPath"].get<std::string>();
        sidecar.payloadName = payloadPath.substr(payloadPath.rfind('/') + 1);
        sidecar.byteCount = (*json)["byteCount"].get<long long>();
        if (json->contains("fingerprint")) {
          sidecar.fingerprint = (*json)["fingerprint"]["hex"].get<std::string>();
        }
      }
    }
  }

  others_.clear();
  for (const std::string& folder : otherFolders_) {
    for (const std::string& name : namesIn(folder)) {
      if (auto bytes = readRegularFile(folder + "/" + name, st)) {
        others_[folder + "/" + name] = File{versionOf(*bytes), st.st_ino, st.st_size};
      }
    }
  }
}

std::string VersionCensus::whereIs(const std::string& fingerprintHex) const {
  auto holds = [&](const std::map<std::string, File>& files) {
    for (const auto& [name, file] : files) {
      if (file.version == fingerprintHex) {
        return true;
      }
    }
    return false;
  };
  if (pageFile_ && pageFile_->version == fingerprintHex) {
    return "page";
  }
  if (holds(swapFiles_)) {
    return "swap";
  }
  if (holds(payloads_)) {
    return "store";
  }
  if (holds(others_)) {
    return "other";
  }
  return "";
}

std::vector<std::string> VersionCensus::inconsistentSidecars() const {
  std::vector<std::string> problems;
  for (const auto& [name, sidecar] : sidecars_) {
    if (!sidecar.decoded) {
      continue;
    }
    auto payload = payloads_.find(sidecar.payloadName);
    if (payload == payloads_.end()) {
      problems.push_back(name + ": payload missing");
    } else if (sidecar.fingerprint && *sidecar.fingerprint != payload->second.version) {
      problems.push_back(name + ": fingerprint differs from the payload's");
    } else if (sidecar.fingerprint && sidecar.byteCount != payload->second.size) {
      problems.push_back(name + ": byte count differs from the payload's");
    }
  }
  return problems;
}

}  // namespace vorna::testing
