# Cross-compiles for 64-bit Windows with MinGW-w64 (Debian: g++-mingw-w64-x86-64).
#
# A Qt for Windows of the same compiler is given by Qt6_DIR (its lib/cmake/Qt6) or CMAKE_PREFIX_PATH, together with
# QT_HOST_PATH, a Qt of the same version for this machine, whose moc, uic and rcc do the work.

set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

find_program(CMAKE_C_COMPILER NAMES x86_64-w64-mingw32-gcc-posix x86_64-w64-mingw32-gcc REQUIRED)
find_program(CMAKE_CXX_COMPILER NAMES x86_64-w64-mingw32-g++-posix x86_64-w64-mingw32-g++ REQUIRED)
find_program(CMAKE_RC_COMPILER NAMES x86_64-w64-mingw32-windres REQUIRED)

# The libraries of the compiler go into the programs, too.
set(CMAKE_EXE_LINKER_FLAGS_INIT -static)

# Packages are looked for among those for Windows only, never among those of this machine.
set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32 ${CMAKE_PREFIX_PATH})
if(Qt6_DIR)
  cmake_path(SET tavimora_qt_prefix NORMALIZE "${Qt6_DIR}/../../..")
  list(APPEND CMAKE_FIND_ROOT_PATH "${tavimora_qt_prefix}")
endif()
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
