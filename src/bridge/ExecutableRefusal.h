#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "storage/FileSystem.h"

// Decides whether the desktop may be asked to open an item. The path comes
// from web content, so "open" must never start a program: a launcher, an
// executable, a script or an application bundle is refused, whatever its
// default application would be.
namespace vorna::bridge {

// The content types refused, tested in this order with GIO's sub-class
// relation. application/x-executable comes first and also catches scripts and
// AppImages, which shared-mime-info declares as its sub-classes;
// application/x-desktop is a launcher, the Linux form of an application.
inline constexpr std::array<std::string_view, 5> kRefusedContentTypes{
    "application/x-executable",        "application/x-desktop",      "application/x-shellscript",
    "application/x-ms-dos-executable", "application/x-java-archive",
};

// The content type GIO guesses from the item's name and its first 4 KiB (the
// name alone when the content cannot be read).
std::string guessContentType(const std::string& path, storage::FileSystem& fs);

// Whether a content type is a document, image, sound, video, font or text,
// which the execute-bit test leaves alone.
bool isContentType(const std::string& type);

// Nothing when the item may be opened, else the message to answer with ({name}
// is the item's last path component), first match wins:
//   "refusing to open a bundle: {name}"       a folder with an extension
//   "refusing to open what is not a regular file: {name}"
//                                             a pipe, device or socket
//   "refusing to open {type}: {name}"         a file whose content type is, or
//                                             is a sub-class of, a refused type
//                                             ({type} the refused one)
//   "refusing to open a file with an executable bit: {name}"
//                                             a file that is not content and
//                                             has any execute bit set
// A plain folder, content, and a file that is none of the above may be opened.
// JSON is a data document although shared-mime-info files it under JavaScript,
// so it is not refused. Unreadable attributes or content never cause a refusal
// by themselves.
std::optional<std::string> executableRefusal(const std::string& path,
                                             storage::FileSystem& fs = storage::FileSystem::real());

}  // namespace vorna::bridge
