# Other people's libraries, all from the system's packages. Imported targets are system headers to the compiler.
find_package(PkgConfig REQUIRED)
pkg_check_modules(utf8proc REQUIRED IMPORTED_TARGET libutf8proc)
pkg_check_modules(sqlite3 REQUIRED IMPORTED_TARGET sqlite3)
# Of toml++ only the headers: a library to load would cost every start, and only two commands read TOML.
find_path(TOMLPLUSPLUS_HEADERS toml++/toml.h REQUIRED)
find_path(DTL_HEADERS dtl/dtl.hpp REQUIRED)
find_package(Threads REQUIRED)
if(KELVANE_TESTS)
  find_package(GTest)
endif()
find_package(benchmark QUIET)
