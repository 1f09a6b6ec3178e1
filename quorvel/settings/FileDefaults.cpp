#include "quorvel/settings/FileDefaults.h"

#include <algorithm>

#include "platform/HomeFolder.h"
#include "platform/Unicode.h"
#include "quorvel/files/SystemReason.h"
#include "quorvel/settings/FileChange.h"
#include "quorvel/settings/FileReading.h"
#include "quorvel/settings/MadeFolder.h"

namespace quorvel {
namespace {

using kelvane::JSONDocument;
namespace unicode = kelvane::unicode;

/// The object in a settings file's text. Empty if the text is damaged.
std::optional<JSONDocument> settingsIn(const std::string& text) {
  auto settings = JSONDocument::read(text);
  return settings && settings->root().kind == JSONDocument::Kind::object ? settings : std::nullopt;
}

bool isTrue(std::string_view text) {
  text = unicode::trimmingSpacesAndTabs(text);
  if (text.starts_with('+') || text.starts_with('-')) text.remove_prefix(1);
  text.remove_prefix(std::min(text.find_first_not_of('0'), text.size()));
  constexpr std::string_view first = "YyTt123456789";
  return !text.empty() && first.find(text.front()) != std::string_view::npos && unicode::characterEnd(text, 0) == 1;
}

bool isDamaged(const std::string& text) {
  return !text.empty() && !settingsIn(text);
}

}  // namespace

std::shared_ptr<FileDefaults> FileDefaults::domain(std::string_view name) {
  if (name.empty() || name.starts_with('.') || name.find_first_of(std::string_view("/\0", 2)) != std::string_view::npos)
    return {};
  const auto home = kelvane::homeFolder();
  if (!home) return {};
  return std::make_shared<FileDefaults>(*home / ".config" / "kelvane" / (std::string(name) + ".json"));
}

FileDefaults::FileDefaults(std::filesystem::path file) : file_(std::move(file)) {
  read();
}

void FileDefaults::read() {
  settings_.reset();
  problem_.reset();
  try {
    const auto text = readFile(file_);
    if (!text || text->empty()) return;
    settings_ = settingsIn(*text);
    if (!settings_) {
      problem_ = "The settings in " + inQuotes(file_.native()) +
                 " are damaged, so all of them are off. Fix the file, or set them again, which saves a copy of it.";
    }
  } catch (const FileError& error) {
    problem_ = error.what();
  }
}

std::optional<JSONDocument::Value> FileDefaults::find(std::string_view key) const {
  return settings_ ? settings_->find({key}) : std::nullopt;
}

bool FileDefaults::boolForKey(std::string_view key) const {
  const auto value = find(key);
  if (!value) return false;
  switch (value->kind) {
    case JSONDocument::Kind::boolean:
      return settings_->written(*value) == "true";
    case JSONDocument::Kind::number: {
      const std::string_view number = settings_->written(*value);
      return number.substr(0, number.find_first_of("eE")).find_first_of("123456789") != std::string_view::npos;
    }
    case JSONDocument::Kind::string:
      return isTrue(settings_->string(*value));
    default:
      return false;
  }
}

std::optional<std::string> FileDefaults::textForKey(std::string_view key) const {
  const auto value = find(key);
  if (!value || value->kind != JSONDocument::Kind::string) return std::nullopt;
  return settings_->string(*value);
}

std::optional<std::filesystem::path> FileDefaults::set(std::string_view key, std::string_view text) {
  if (!unicode::isValidUTF8(text)) {
    throw FileError(inQuotes(text) + " cannot be set, because it is not UTF-8. Choose another name.");
  }
  return write(key, kelvane::quotedJSON(text));
}

std::optional<std::filesystem::path> FileDefaults::write(std::string_view key, std::string_view json) {
  FileCopies copies = this->copies();
  makeFolder(file_.parent_path());
  changeFile(copies, [&](const std::optional<std::string>& text) {
    auto settings = settingsIn(text.value_or(""));
    if (!settings) settings = settingsIn("{}\n");
    settings->set({key}, json);
    return std::optional(settings->json());
  });
  read();
  return copies.last();
}

FileCopies FileDefaults::copies() const {
  return {file_, ".damaged", isDamaged};
}

}  // namespace quorvel
