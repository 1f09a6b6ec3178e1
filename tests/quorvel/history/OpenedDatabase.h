#pragma once

#include <fcntl.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <utility>

#include "quorvel/files/Descriptor.h"
#include "quorvel/history/SQLite.h"

namespace quorvel {

/// A connection to the database at a path.
inline sqlite::Connection openedDatabase(const std::filesystem::path& file, sqlite::Connection::Access access,
                                         std::chrono::milliseconds patience) {
  auto folder =
      std::make_shared<const Descriptor>(::open(file.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return sqlite::Connection(std::move(folder), file.filename(), access, patience);
}

}  // namespace quorvel
