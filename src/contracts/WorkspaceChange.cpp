#include "contracts/WorkspaceChange.h"

#include "contracts/EnumNames.h"

namespace vorna::contracts {
namespace {

using Kind = WorkspaceChange::Kind;

constexpr EnumNames<Kind, 4> kKindNames{{{{Kind::modified, "modified"},
                                          {Kind::created, "created"},
                                          {Kind::removed, "removed"},
                                          {Kind::renamed, "renamed"}}}};

}  // namespace

std::string_view WorkspaceChange::kindName(Kind kind) {
  return kKindNames.name(kind);
}

Json WorkspaceChange::jsonObject() const {
  Json object = {{"type", "changed"}, {"kind", kindName(kind)}, {"path", path}};
  if (fingerprint) {
    object["fingerprint"] = *fingerprint;
  }
  return object;
}

}  // namespace vorna::contracts
