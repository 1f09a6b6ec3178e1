#include "program/OwnSettings.h"

#include <stdexcept>

#include "program/Process.h"
#include "quorvel/files/SystemReason.h"

namespace kelvane {
namespace {

constexpr const char* noHome = "There is no home folder to store the settings in. Set HOME to one.";

template <class Value>
void storeValue(const std::filesystem::path& file, std::string_view key, const Value& value) {
  const auto copy = quorvel::FileDefaults(file).set(key, value);
  if (copy) say("The settings were damaged. Their old text is now in " + quorvel::inQuotes(copy->native()) + ".");
}

}  // namespace

// A command-line program has no bundle identifier. Suites are files here (quorvel/settings), read once, so that the
// switches and the folder are of one moment.
OwnSettings::OwnSettings()
    : store_(std::dynamic_pointer_cast<const quorvel::FileDefaults>(
          Preferences::defaults(Preferences::bundleID, std::nullopt))) {
}

const quorvel::FileDefaults& OwnSettings::store() const {
  if (!store_) throw std::runtime_error(noHome);
  return *store_;
}

void OwnSettings::change(std::string_view key, bool value) const {
  storeValue(store().file(), key, value);
}

void OwnSettings::change(std::string_view key, std::string_view value) const {
  storeValue(store().file(), key, value);
}

std::optional<std::string> OwnSettings::problem() const {
  return store_ ? store_->problem() : noHome;
}

std::optional<std::filesystem::path> OwnSettings::namedLibraryFolder() const {
  auto folder = store_ ? store_->textForKey(libraryFolderKey) : std::nullopt;
  if (!folder || folder->empty()) return std::nullopt;
  return std::filesystem::path(*std::move(folder));
}

std::filesystem::path OwnSettings::libraryFolder() const {
  const auto folder = namedLibraryFolder();
  if (!folder) {
    const std::string why = problem() ? *problem() + ' ' : std::string();
    throw std::runtime_error(
        why + "No script folder is set. Give one with --library DIR, or run: kelvane settings library DIR");
  }
  // A relative one would be another folder wherever a client starts the server, and a NUL ends what the system reads.
  if (folder->is_absolute() && folder->native().find('\0') == std::string::npos) return *folder;
  throw std::runtime_error("The settings name the library " + quorvel::inQuotes(folder->native()) +
                           ", which is not an absolute path. Run: kelvane settings library DIR");
}

}  // namespace kelvane
