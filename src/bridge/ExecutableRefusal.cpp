#include "bridge/ExecutableRefusal.h"

#include <fcntl.h>
#include <gio/gio.h>
#include <sys/stat.h>

#include <memory>

#include "bridge/PathExtension.h"
#include "contracts/GUniquePtr.h"
#include "storage/PathNames.h"
#include "storage/UniqueFd.h"

namespace vorna::bridge {
namespace {

// As much as GIO's own sniffing looks at.
constexpr size_t kSniffBytes = 4096;

constexpr std::array<std::string_view, 5> kContentPrefixes{"text/", "image/", "audio/", "video/",
                                                           "font/"};
constexpr std::array<std::string_view, 5> kContentFamilyPrefixes{
    "application/vnd.oasis.opendocument.", "application/vnd.openxmlformats-officedocument.",
    "application/vnd.ms-", "application/x-font-", "application/x-iwork-"};
// Tested with the sub-class relation, so formats built on these count too
// (text/plain covers the many application/* types that are plain text).
constexpr std::array<const char*, 8> kContentTypes{
    "text/plain",         "application/pdf", "application/json",     "application/xml",
    "application/msword", "application/rtf", "application/epub+zip", "application/postscript"};

bool startsWith(std::string_view text, std::string_view prefix) {
  return text.substr(0, prefix.size()) == prefix;
}

std::string readPrefix(const std::string& path, storage::FileSystem& fs) {
  storage::UniqueFd fd(fs, fs.open(path, O_RDONLY | O_NONBLOCK, 0));
  if (!fd) {
    return {};
  }
  std::string bytes(kSniffBytes, '\0');
  size_t used = 0;
  while (used < bytes.size()) {
    ssize_t got = fs.read(fd.get(), bytes.data() + used, bytes.size() - used);
    if (got <= 0) {
      break;
    }
    used += static_cast<size_t>(got);
  }
  bytes.resize(used);
  return bytes;
}

}  // namespace

std::string guessContentType(const std::string& path, storage::FileSystem& fs) {
  const std::string name = storage::lastComponent(path);
  const std::string head = readPrefix(path, fs);
  contracts::GText type(g_content_type_guess(
      name.c_str(), reinterpret_cast<const guchar*>(head.data()), head.size(), nullptr));
  return type ? std::string(type.get()) : std::string("application/octet-stream");
}

bool isContentType(const std::string& type) {
  for (std::string_view prefix : kContentPrefixes) {
    if (startsWith(type, prefix)) {
      return true;
    }
  }
  for (std::string_view prefix : kContentFamilyPrefixes) {
    if (startsWith(type, prefix)) {
      return true;
    }
  }
  for (const char* content : kContentTypes) {
    if (g_content_type_is_a(type.c_str(), content)) {
      return true;
    }
  }
  return false;
}

std::optional<std::string> executableRefusal(const std::string& path, storage::FileSystem& fs) {
  const std::string name = storage::lastComponent(path);
  struct stat info {};
  const bool readable = fs.stat(path, &info) == 0;
  const bool isDirectory = readable && S_ISDIR(info.st_mode);
  if (isDirectory && !pathExtension(path).empty()) {
    return "refusing to open a bundle: " + name;
  }
  if (isDirectory) {
    return std::nullopt;
  }
  // A pipe, device or socket handed to a desktop program could hold it for good.
  if (readable && !S_ISREG(info.st_mode)) {
    return "refusing to open what is not a regular file: " + name;
  }
  // A missing or unreadable file is still judged by its name: a script that
  // appears after this check must not slip through for lack of content.
  const std::string type = guessContentType(path, fs);
  const bool isData = g_content_type_is_a(type.c_str(), "application/json");
  if (!isData) {
    for (std::string_view refused : kRefusedContentTypes) {
      if (g_content_type_is_a(type.c_str(), std::string(refused).c_str())) {
        return "refusing to open " + std::string(refused) + ": " + name;
      }
    }
  }
  if (isContentType(type)) {
    return std::nullopt;
  }
  if (readable && (info.st_mode & 0111) != 0) {
    return "refusing to open a file with an executable bit: " + name;
  }
  return std::nullopt;
}

}  // namespace vorna::bridge
