#pragma once

#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <functional>
#include <stdexcept>
#include <string_view>

namespace quorvel {

/// While it lives, what SQLite asks of the system can be interrupted. One at a time.
class SQLiteCalls {
 public:
  /// Called just before each call, with its name.
  using Before = std::function<void(std::string_view call)>;

  explicit SQLiteCalls(Before before) {
    before_ = std::move(before);
    stand<opened_>("open",
                   [](const char* path, int flags, int mode) { return made("open"), opened_(path, flags, mode); });
    stand<looked_>("access", [](const char* path, int what) { return made("access"), looked_(path, what); });
    stand<asked_>("stat", [](const char* path, struct stat* status) { return made("stat"), asked_(path, status); });
    stand<removed_>("unlink", [](const char* path) { return made("unlink"), removed_(path); });
    stand<cut_>("ftruncate", [](int file, off_t size) { return made("ftruncate"), cut_(file, size); });
    stand<wrote_>("pwrite", [](int file, const void* bytes, std::size_t count, off_t at) {
      return made("pwrite"), wrote_(file, bytes, count, at);
    });
    stand<wrote64_>("pwrite64", [](int file, const void* bytes, std::size_t count, off_t at) {
      return made("pwrite"), wrote64_(file, bytes, count, at);
    });
  }
  SQLiteCalls(const SQLiteCalls&) = delete;
  SQLiteCalls& operator=(const SQLiteCalls&) = delete;
  ~SQLiteCalls() {
    system()->xSetSystemCall(system(), nullptr, nullptr);
    before_ = nullptr;
  }

 private:
  static sqlite3_vfs* system() { return sqlite3_vfs_find(nullptr); }

  // What is done meanwhile may use SQLite itself.
  static void made(std::string_view call) {
    if (isInside_) return;
    isInside_ = true;
    before_(call);
    isInside_ = false;
  }

  template <auto& own, typename Call>
  static void stand(const char* name, Call call) {
    using Function = std::remove_reference_t<decltype(own)>;
    own = reinterpret_cast<Function>(system()->xGetSystemCall(system(), name));
    if (!own) return;  // not on this system
    const Function instead = call;
    if (system()->xSetSystemCall(system(), name, reinterpret_cast<sqlite3_syscall_ptr>(instead)) != SQLITE_OK)
      throw std::runtime_error("SQLite takes no other system calls.");
  }

  static inline Before before_;
  static inline bool isInside_ = false;
  static inline int (*opened_)(const char*, int, int) = nullptr;
  static inline int (*looked_)(const char*, int) = nullptr;
  static inline int (*asked_)(const char*, struct stat*) = nullptr;
  static inline int (*removed_)(const char*) = nullptr;
  static inline int (*cut_)(int, off_t) = nullptr;
  static inline ssize_t (*wrote_)(int, const void*, std::size_t, off_t) = nullptr;
  static inline ssize_t (*wrote64_)(int, const void*, std::size_t, off_t) = nullptr;
};

}  // namespace quorvel
