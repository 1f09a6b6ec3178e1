# Other people's libraries, all from the system's packages. Imported targets are system headers to the compiler.
find_package(PkgConfig REQUIRED)
pkg_check_modules(utf8proc REQUIRED IMPORTED_TARGET libutf8proc)
pkg_check_modules(sqlite3 REQUIRED IMPORTED_TARGET sqlite3)

# offer_archive(MODULE ARCHIVE CALL): targets with the property KELVANE_ARCHIVES link the archive of a library, if there
# is one that links by itself. All others link the shared library.
include(CheckCXXSourceCompiles)
function(offer_archive module archive call)
  find_library(${module}_ARCHIVE ${archive} HINTS ${${module}_LIBRARY_DIRS} ${${module}_LIBDIR})
  if(${module}_ARCHIVE)
    set(CMAKE_REQUIRED_LIBRARIES ${${module}_ARCHIVE} m)
    check_cxx_source_compiles("extern \"C\" void ${call}(); int main() { ${call}(); }" ${module}_ARCHIVE_LINKS)
  endif()
  if(${module}_ARCHIVE_LINKS)
    set(wants_archive $<BOOL:$<TARGET_PROPERTY:KELVANE_ARCHIVES>>)
    set_target_properties(PkgConfig::${module} PROPERTIES INTERFACE_LINK_LIBRARIES
      "$<IF:${wants_archive},${${module}_ARCHIVE},${${module}_LINK_LIBRARIES}>;$<${wants_archive}:m>")
  endif()
endfunction()
offer_archive(utf8proc libutf8proc.a utf8proc_version)
offer_archive(sqlite3 libsqlite3.a sqlite3_initialize)
# Of toml++ only the headers: a library to load would cost every start, and only two commands read TOML.
find_path(TOMLPLUSPLUS_HEADERS toml++/toml.h REQUIRED)
# program/configuration/TOMLParser.h relies on the private macros of this version, and refuses any other.
set(tomlplusplus_version 3.3.0)
set(version_file ${TOMLPLUSPLUS_HEADERS}/toml++/impl/version.h)
set(found_version "unknown")
if(EXISTS ${version_file})
  file(STRINGS ${version_file} lines REGEX "define TOML_LIB_(MAJOR|MINOR|PATCH) +[0-9]+")
  list(TRANSFORM lines REPLACE ".* " "")
  list(JOIN lines "." found_version)
endif()
if(NOT found_version STREQUAL tomlplusplus_version)
  message(FATAL_ERROR
    "Kelvane needs toml++ ${tomlplusplus_version}, but the headers in ${TOMLPLUSPLUS_HEADERS} are of version "
    "${found_version}. Install ${tomlplusplus_version}, Debian's libtomlplusplus-dev, or pass "
    "-DTOMLPLUSPLUS_HEADERS=DIR with the folder that holds its toml++/toml.h.")
endif()
find_path(DTL_HEADERS dtl/dtl.hpp REQUIRED)
find_path(XXHASH_HEADERS xxhash.h REQUIRED)
find_package(Threads REQUIRED)
if(KELVANE_TESTS)
  find_package(GTest)
endif()
find_package(benchmark QUIET)
