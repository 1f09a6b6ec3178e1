# How every target of ours is compiled.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  set(CMAKE_BUILD_TYPE Release)
endif()

if(NOT CMAKE_CXX_COMPILER_LAUNCHER)
  find_program(KELVANE_CCACHE ccache)
  if(KELVANE_CCACHE)
    # It looks into precompiled headers only when told that their time stamps do not matter.
    set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros ${KELVANE_CCACHE})
  endif()
endif()

# -O3 gains next to nothing here, and GCC 12 warns there of its own library's strings.
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")

# For every source, since headers look at it, too.
if(KELVANE_PORTABLE)
  add_compile_definitions(KELVANE_PORTABLE)
endif()

add_library(kelvane_options INTERFACE)
target_include_directories(kelvane_options INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_options(kelvane_options INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
if(KELVANE_WARNINGS_AS_ERRORS)
  target_compile_options(kelvane_options INTERFACE -Werror)
endif()
if(KELVANE_SANITIZERS)
  set(sanitizers -fsanitize=${KELVANE_SANITIZERS} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_compile_options(kelvane_options INTERFACE ${sanitizers})
  target_link_options(kelvane_options INTERFACE ${sanitizers})
endif()

# The headers of the C++ library take longer to compile than most of our sources, so they are compiled once for all.
# Each source still includes what it uses: the presets portable and tidy compile without this, and find one that does
# not.
file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/StandardHeaders.cpp CONTENT "")
add_library(kelvane_standard_headers OBJECT EXCLUDE_FROM_ALL ${PROJECT_BINARY_DIR}/StandardHeaders.cpp)
target_link_libraries(kelvane_standard_headers PRIVATE kelvane_options)
target_precompile_headers(kelvane_standard_headers PRIVATE
  <algorithm> <chrono> <filesystem> <functional> <map> <memory> <optional> <stdexcept> <string> <string_view>
  <system_error> <vector>)
set(for_ccache $<$<CXX_COMPILER_ID:GNU>:-fpch-preprocess>)
target_compile_options(kelvane_standard_headers PRIVATE ${for_ccache})

# kelvane_precompiled(TARGET): lets the sources of a target use them.
function(kelvane_precompiled target)
  if(NOT KELVANE_PORTABLE)
    target_precompile_headers(${target} REUSE_FROM kelvane_standard_headers)
    target_compile_options(${target} PRIVATE ${for_ccache})
  endif()
endfunction()

# kelvane_library(NAME FOLDER dir LINK targets…): the library kelvane_NAME of all sources below a folder.
function(kelvane_library name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "FOLDER" "LINK")
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${arg_FOLDER}/*.cpp)
  if(sources)
    add_library(kelvane_${name} STATIC ${sources})
    target_link_libraries(kelvane_${name} PUBLIC ${arg_LINK} PRIVATE kelvane_options)
    target_include_directories(kelvane_${name} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>)
    kelvane_precompiled(kelvane_${name})
  else()
    add_library(kelvane_${name} INTERFACE)
    target_link_libraries(kelvane_${name} INTERFACE ${arg_LINK})
  endif()
endfunction()
