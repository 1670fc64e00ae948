#include "app/UserScripts.h"

#include <cstring>
#include <string>

#include "app/ScriptResource.h"
#include "contracts/Json.h"

namespace vorna::app {
namespace {

// A script with the host's texts and the body mark written in: each
// "@NAME@" string in it becomes the text as a JSON string.
std::string withTexts(std::string source) {
  for (const auto& [marker, text] :
       {std::pair{"\"@FORMDATA_REFUSAL@\"", UserScripts::kFormDataRefusal},
        std::pair{"\"@BLOB_REFUSAL@\"", UserScripts::kBlobRefusal},
        std::pair{"\"@BODY_HEADER@\"", UserScripts::kBodyHeader},
        std::pair{"\"@BODY_HEADER_VALUE@\"", UserScripts::kBodyHeaderValue}}) {
    const std::string value = contracts::writeJson(contracts::Json(text));
    for (size_t at = source.find(marker); at != std::string::npos;
         at = source.find(marker, at + value.size())) {
      source.replace(at, std::strlen(marker), value);
    }
  }
  return source;
}

}  // namespace

const std::vector<UserScript>& UserScripts::all() {
  static const std::vector<UserScript> scripts = {
      {ScriptResource::text("storage-shim.js"), true},
      {withTexts(ScriptResource::text("bridge-shim.js")), true}};
  return scripts;
}

const UserScript& UserScripts::bodyGuard() {
  static const UserScript guard{withTexts(ScriptResource::text("body-guard.js")), false};
  return guard;
}

}  // namespace vorna::app
