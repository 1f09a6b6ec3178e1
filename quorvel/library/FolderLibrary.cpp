#include "quorvel/library/FolderLibrary.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <climits>
#include <utility>

#include "platform/FileSystem.h"
#include "quorvel/files/Beneath.h"
#include "quorvel/files/LibraryError.h"
#include "quorvel/files/WholeFile.h"

namespace quorvel {
namespace {

namespace filesystem = kelvane::filesystem;

constexpr int readingFlags = O_RDONLY | O_NONBLOCK | O_NOCTTY;

// What is left of a path behind the folder that it lies in; nothing when it lies elsewhere.
std::optional<std::string> relative(const std::string& path, const std::string& folder) {
  if (path == folder) return std::string();
  if (!path.starts_with(folder + '/')) return std::nullopt;
  return path.substr(folder.size() + 1);
}

}  // namespace

FolderLibrary::FolderLibrary(const std::filesystem::path& root, std::shared_ptr<History> history)
    : FolderLibrary(root, std::move(history), Options()) {
}

FolderLibrary::FolderLibrary(const std::filesystem::path& root, std::shared_ptr<History> history,
                             const Options& options)
    : root_(filesystem::standardized(root)), history_(std::move(history)), options_(options) {
}

std::string FolderLibrary::fileExtension() const {
  return std::string(scriptSuffix.substr(1));
}

std::shared_ptr<const OpenedRoot> FolderLibrary::openRoot() const try {
  return OpenedRoot::find(root_);
} catch (const std::system_error& error) {
  throw failure("The library folder " + inQuotes(root_.native()) + " could not be opened", error.code());
}

void FolderLibrary::requireReadable() const {
  const Descriptor readable(::open(root_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!readable) throw failure("The library folder " + inQuotes(root_.native()) + " could not be read", lastError());
}

// Items are looked up by their whole paths, which hold the root as it is spelt or with its links resolved.
std::size_t FolderLibrary::longestIdentifier() const {
  const std::size_t root = std::max(root_.native().size(), filesystem::resolvingSymbolicLinks(root_).size()) + 1;
  return root < PATH_MAX ? PATH_MAX - 1 - root : 0;
}

ListingScope FolderLibrary::scope(const OpenedRoot& root, PathBeneath folder) const {
  return {root.folder().get(), std::move(folder), longestIdentifier()};
}

std::size_t FolderLibrary::countOfUnlistableNames() const {
  const auto root = openRoot();
  const auto count = quorvel::countOfUnlistableNames(options_.calls, scope(*root, PathBeneath()));
  if (!count) throw failure("The library folder " + inQuotes(root_.native()) + " could not be read", count.error());
  return *count;
}

std::vector<ScriptItem> FolderLibrary::contents(const std::filesystem::path& folder) const {
  const std::string happened = "The folder " + inQuotes(folder.native()) + " could not be read";
  PathBeneath path = pathBeneath(identifier(folder), happened);
  const auto root = openRoot();
  auto items = listing(options_.calls, scope(*root, std::move(path)));
  if (!items) throw failure(happened, items.error());
  return *std::move(items);
}

void FolderLibrary::visit(ItemVisitor& visitor) const {
  const auto root = openRoot();
  if (const std::error_code error = visitItems(options_.calls, scope(*root, PathBeneath()), visitor))
    throw failure("The folder " + inQuotes(root_.native()) + " could not be read", error);
}

std::string FolderLibrary::read(const ScriptItem& script) const {
  return read(script, std::chrono::milliseconds(0));
}

std::string FolderLibrary::readToReplace(const ScriptItem& script) const {
  return read(script, options_.patienceWithWriters);
}

std::string FolderLibrary::read(const ScriptItem& script, std::chrono::milliseconds patience) const {
  const std::string happened = inQuotes(script.identifier) + " could not be read";
  const PathBeneath path = pathBeneath(script.identifier, happened);
  const auto file = openToRead(path);
  if (!file) throw failure(happened, file.error());
  if (patience.count() > 0) waitForWriters(file->get(), patience);
  struct stat status;
  if (::fstat(file->get(), &status) != 0) throw failure(happened, lastError());
  if (S_ISDIR(status.st_mode)) throw failure(happened, std::make_error_code(std::errc::is_a_directory));
  if (!S_ISREG(status.st_mode))
    throw LibraryError(happened + ", because what is there now is not a file. Move it away and try again.");
  auto text = readToEnd(file->get(), status.st_size, options_.calls);
  if (!text && text.error() == std::errc::file_too_large) throw tooLarge(happened, "it");
  if (!text) throw failure(happened, text.error());
  return *std::move(text);
}

// Where this thread holds no lock and no link leads to the script, one system call opens it by its whole path: a path
// without links and ".." ends beneath the root that is there now. Whatever that call answers otherwise, opening the
// root first tells what it means.
Descriptor FolderLibrary::openAtOnce(const PathBeneath& path) const {
  if (OpenedRoot::held(root_)) return Descriptor();
  const std::string whole = root_.native() + '/' + path.string();
  return Descriptor(options_.calls.openWithoutLinks(whole.c_str(), readingFlags | O_CLOEXEC));
}

Expected<Descriptor> FolderLibrary::openToRead(const PathBeneath& path) const {
  if (Descriptor file = openAtOnce(path)) return file;
  const auto root = openRoot();
  return openBeneath(options_.calls, root->folder().get(), path, readingFlags);
}

// What fails here, fails or succeeds again where the reason is told. An identifier may have megabytes; one that is
// longer than a path is not even read here. Nothing is inside the root "/".
std::optional<std::string> FolderLibrary::readAtOnce(std::string_view identifier) const {
  if (identifier.size() >= PATH_MAX || root_ == root_.root_path()) return std::nullopt;
  const auto path = PathBeneath::of(identifier);
  if (!path || !path->name().ends_with(scriptSuffix) || path->name() == scriptSuffix) return std::nullopt;
  const Descriptor file = openAtOnce(*path);
  struct stat status;
  if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  auto text = readToEnd(file.get(), status.st_size, options_.calls);
  if (!text) return std::nullopt;
  return *std::move(text);
}

std::string FolderLibrary::identifier(const std::filesystem::path& file) const {
  const std::string path = filesystem::standardized(file);
  if (auto found = relative(path, root_.native())) return std::move(*found);
  if (auto found = relative(path, filesystem::resolvingSymbolicLinks(root_))) return std::move(*found);
  throw LibraryError(inQuotes(file.native()) + " is not inside the library.");
}

}  // namespace quorvel
