# Cross-builds for 64-bit Windows with Debian's MinGW-w64. Other libraries come from the folder
# OOCPC_WINDOWS_LIBRARIES, which scripts/windows-libraries.sh fills.

set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

# The variants with POSIX threads have std::thread and std::mutex.
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)
set(OOCPC_CXXFILT x86_64-w64-mingw32-c++filt)

if(NOT OOCPC_WINDOWS_LIBRARIES)
  set(OOCPC_WINDOWS_LIBRARIES ${CMAKE_CURRENT_LIST_DIR}/../build/windows-libraries)
endif()
get_filename_component(OOCPC_WINDOWS_LIBRARIES ${OOCPC_WINDOWS_LIBRARIES} ABSOLUTE)
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES OOCPC_WINDOWS_LIBRARIES)

set(CMAKE_FIND_ROOT_PATH ${OOCPC_WINDOWS_LIBRARIES} /usr/x86_64-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_PREFIX_PATH /)
set(ENV{PKG_CONFIG_LIBDIR} ${OOCPC_WINDOWS_LIBRARIES}/lib/pkgconfig)
# The DLL's import library would be found first; one DLL less to ship.
set(ZLIB_LIBRARY /usr/x86_64-w64-mingw32/lib/libz.a CACHE FILEPATH "zlib, linked statically")

# The compiler's runtime goes into each module: there is nothing to ship besides.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static")
# Windows aligns the stack to 16 bytes, and this compiler does not raise that for the 32 bytes of
# an AVX register (GCC bug 54412): the assembler writes moves that need no alignment.
set(CMAKE_C_FLAGS_INIT "-Wa,-muse-unaligned-vector-move")
set(CMAKE_CXX_FLAGS_INIT "-Wa,-muse-unaligned-vector-move")

find_program(OOCPC_WINE NAMES wine wine64)
if(OOCPC_WINE)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${OOCPC_WINE})
endif()
