#include "scripttools/ItemSummary.h"

#include "platform/Unicode.h"

namespace kelvane {

using quorvel::ScriptItem;

JSON::Object itemSummary(const ScriptItem& item) {
  return {{"id", item.identifier},
          {"kind", item.kind == ScriptItem::Kind::folder ? "folder" : "script"},
          {"name", item.name}};
}

JSON::Object itemSummary(const ScriptItem& script, std::string_view text) {
  auto summary = itemSummary(script);
  summary.set("words", unicode::wordCount(text));
  return summary;
}

}  // namespace kelvane
