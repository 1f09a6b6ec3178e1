#include <algorithm>

#include "platform/Unicode.h"
#include "platform/json/JSONDocument.h"

// How a new member gets the layout of its neighbours: what is between the members of an object is copied from what is
// before its last member. An object without members takes the line breaks and the indentation of the document's first
// member. A document on one line stays on one line.
namespace kelvane {
namespace {

bool isSpace(char byte) noexcept {
  return byte == ' ' || byte == '\t' || byte == '\n' || byte == '\r';
}

/// The white space from its last line break on; std::nullopt if it has no line break.
std::optional<std::string_view> lastLine(std::string_view space) noexcept {
  const std::size_t feed = space.rfind('\n');
  if (feed == std::string_view::npos) return std::nullopt;
  return space.substr(feed > 0 && space[feed - 1] == '\r' ? feed - 1 : feed);
}

/// The white space that ends at an offset.
std::string_view spaceBefore(std::size_t end, std::string_view json) noexcept {
  std::size_t begin = end;
  while (begin > 0 && isSpace(json[begin - 1])) --begin;
  return json.substr(begin, end - begin);
}

/// What stands between a member's key and its value; ": " if that is more than one line.
std::string_view colon(const JSONDocument::Member& member, std::string_view json) noexcept {
  const std::size_t end = member.value.begin;
  const std::size_t sign = json.rfind(':', end - 1);
  const std::size_t begin = sign - spaceBefore(sign, json).size();
  const std::string_view between = json.substr(begin, end - begin);
  return lastLine(between) ? ": " : between;
}

/// The kind of a value. The first byte of JSON determines it.
JSONDocument::Kind kindOf(std::string_view json) noexcept {
  switch (json.front()) {
    case '{':
      return JSONDocument::Kind::object;
    case '[':
      return JSONDocument::Kind::array;
    case '"':
      return JSONDocument::Kind::string;
    case 't':
    case 'f':
      return JSONDocument::Kind::boolean;
    case 'n':
      return JSONDocument::Kind::null;
    default:
      return JSONDocument::Kind::number;
  }
}

/// The spaces and tabs at the start of the line that an offset is in.
std::string_view indentation(std::size_t offset, std::string_view json) noexcept {
  const std::size_t begin = json.substr(0, offset).rfind('\n') + 1;
  const std::size_t end = json.find_first_not_of(" \t", begin);
  return json.substr(begin, std::min(end, offset) - begin);
}

std::string_view newline(std::string_view json) noexcept {
  const std::size_t feed = json.find('\n');
  return feed != std::string_view::npos && feed > 0 && json[feed - 1] == '\r' ? "\r\n" : "\n";
}

}  // namespace

/// What is written around a new member of an object.
struct JSONDocument::Layout {
  std::string beforeKey;    // after the comma or the opening bracket
  std::string colon;        // with the white space around it
  std::string beforeClose;  // before the closing bracket, if the object was empty
};

JSONDocument::Layout JSONDocument::layout(const Value& object, const std::vector<Member>& members) const {
  if (!members.empty()) {
    const std::string_view space = spaceBefore(members.back().begin, json_);
    std::string_view between = kelvane::colon(members.back(), json_);
    std::string_view beforeKey = space;
    if (const auto line = lastLine(space)) {
      beforeKey = *line;
    } else if (members.size() == 1) {
      beforeKey = isSpace(between.back()) ? " " : "";
    }
    return {std::string(beforeKey), std::string(between), {}};
  }
  const auto around = this->members(root_);
  const std::string between(around.empty() ? ": " : kelvane::colon(around.front(), json_));
  if (!around.empty() && written(root_).find('\n') == std::string_view::npos) return {{}, between, {}};
  std::string_view step = "  ";
  if (!around.empty()) {
    if (const auto line = lastLine(spaceBefore(around.front().begin, json_))) step = line->substr(line->find('\n') + 1);
  }
  const std::string close = std::string(newline(json_)).append(indentation(object.begin, json_));
  return {close + std::string(step), between, close};
}

void JSONDocument::splice(std::size_t begin, std::size_t end, std::string_view bytes) {
  json_.replace(begin, end - begin, bytes);
  root_.end = root_.end - (end - begin) + bytes.size();
}

JSONDocument::Value JSONDocument::replace(const Value& value, std::string_view json) {
  const Value replacement{kindOf(json), value.begin, value.begin + json.size()};
  splice(value.begin, value.end, json);
  if (value.begin == root_.begin) root_.kind = replacement.kind;
  return replacement;
}

JSONDocument::Value JSONDocument::append(const Value& object, std::string_view key, std::string_view json) {
  const std::vector<Member> members = this->members(object);
  const Layout layout = this->layout(object, members);
  const bool isFirst = members.empty();
  const std::size_t begin = isFirst ? object.begin + 1 : members.back().value.end;
  const std::string before = (isFirst ? "" : ",") + layout.beforeKey + quotedJSON(key) + layout.colon;
  splice(begin, isFirst ? object.end - 1 : begin, before + std::string(json) + layout.beforeClose);
  return {kindOf(json), begin + before.size(), begin + before.size() + json.size()};
}

void JSONDocument::set(Path path, std::string_view json) {
  Value at = root_;
  for (const std::string_view key : path) {
    if (at.kind != Kind::object) at = replace(at, "{}");
    const auto present = find(at, &key, &key + 1);
    at = present ? *present : append(at, key, "{}");
  }
  replace(at, json);
}

bool JSONDocument::erase(Path path) {
  const std::string_view& key = *(path.end() - 1);
  const auto object = find(root_, path.begin(), &key);
  if (!object || object->kind != Kind::object) return false;
  const std::vector<Member> members = this->members(*object);
  const auto goes = [&key](const Member& member) { return unicode::equivalent(member.key, key); };
  if (std::none_of(members.begin(), members.end(), goes)) return false;

  // A member is removed with everything up to the next member. The last ones are removed with everything after the last
  // member that stays instead.
  const auto lastKept = std::find_if_not(members.rbegin(), members.rend(), goes);
  std::string kept;
  std::size_t copied = object->begin + 1;
  const auto leaveOut = [&](std::size_t begin, std::size_t end) {
    kept.append(json_, copied, begin - copied);
    copied = end;
  };
  for (auto member = members.begin(); member < lastKept.base(); ++member) {
    if (goes(*member)) leaveOut(member->begin, (member + 1)->begin);
  }
  if (lastKept == members.rend()) {
    leaveOut(copied, object->end - 1);
  } else if (lastKept != members.rbegin()) {
    leaveOut(lastKept->value.end, members.back().value.end);
  }
  splice(object->begin + 1, copied, kept);
  return true;
}

}  // namespace kelvane
