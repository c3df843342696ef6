# Settings that hold for every target of the project.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)

option(OOCPC_WARNINGS_AS_ERRORS "Stop at the first compiler warning" OFF)
option(OOCPC_LIBFUZZER "Build the fuzz targets against libFuzzer (needs clang)" OFF)
set(OOCPC_SANITIZE "" CACHE STRING "Sanitizers for every target, as for -fsanitize=")

add_compile_options(-Wall -Wextra -Wpedantic)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # False alarms on std::string's operator+ (GCC bug 105651, mended in 13).
  add_compile_options(-Wno-restrict)
endif()
# With less optimisation than usual, MinGW's GCC raises false alarms where it inlines std::string.
function(oocpc_spare_false_alarms target)
  if(MINGW)
    target_compile_options(${target} PRIVATE
      -Wno-array-bounds -Wno-stringop-overflow -Wno-stringop-overread -Wno-maybe-uninitialized)
  endif()
endfunction()
# Objects of templates that a library shares with others are marked as unique, and a library that has
# such objects is never unloaded. Ours have none that have to be the same everywhere.
function(oocpc_stay_unloadable target)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND NOT WIN32)
    target_compile_options(${target} PRIVATE -fno-gnu-unique)
  endif()
endfunction()
if(OOCPC_WARNINGS_AS_ERRORS)
  add_compile_options(-Werror)
endif()

# Selections must give the same bits in every build: no fused multiply-add behind our back.
add_compile_options(-ffp-contract=off)

if(OOCPC_SANITIZE)
  add_compile_options(-fsanitize=${OOCPC_SANITIZE} -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${OOCPC_SANITIZE})
  if(OOCPC_SANITIZE MATCHES "undefined")
    add_compile_options(-fno-sanitize-recover=undefined)
  endif()
  if(OOCPC_LIBFUZZER)
    add_compile_options(-fsanitize=fuzzer-no-link)
  endif()
endif()

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  # What else precompiled headers need of ccache is set with them.
  set(CMAKE_CXX_COMPILER_LAUNCHER
    ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros ${CCACHE_PROGRAM})
endif()
