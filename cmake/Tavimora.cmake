# What all targets of the project share: the language, the warnings, the sanitizers, and how a library or a test is made.

set(CMAKE_POSITION_INDEPENDENT_CODE ON)

add_library(tavimora_options INTERFACE)
target_compile_features(tavimora_options INTERFACE cxx_std_20)
target_include_directories(tavimora_options INTERFACE "${PROJECT_SOURCE_DIR}")
target_compile_definitions(tavimora_options INTERFACE
  QT_NO_CAST_TO_ASCII QT_NO_URL_CAST_FROM_STRING QT_NO_NARROWING_CONVERSIONS_IN_CONNECT QT_NO_KEYWORDS
  QT_DISABLE_DEPRECATED_BEFORE=0x060400)
if(MSVC)
  target_compile_options(tavimora_options INTERFACE /W4 /permissive- /utf-8)
  target_compile_definitions(tavimora_options INTERFACE UNICODE _UNICODE NOMINMAX WIN32_LEAN_AND_MEAN)
  if(TAVIMORA_WERROR)
    target_compile_options(tavimora_options INTERFACE /WX)
  endif()
else()
  target_compile_options(tavimora_options INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # Warns of std::string itself when it is optimised (GCC bug 105651).
    target_compile_options(tavimora_options INTERFACE -Wno-restrict)
  endif()
  if(WIN32)
    target_compile_definitions(tavimora_options INTERFACE UNICODE _UNICODE NOMINMAX WIN32_LEAN_AND_MEAN)
  endif()
  if(TAVIMORA_WERROR)
    target_compile_options(tavimora_options INTERFACE -Werror)
  endif()
endif()
if(TAVIMORA_SANITIZE)
  target_compile_options(tavimora_options INTERFACE
    -fsanitize=${TAVIMORA_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(tavimora_options INTERFACE -fsanitize=${TAVIMORA_SANITIZE})
endif()
if(TAVIMORA_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    message(FATAL_ERROR "The fuzz targets need clang: use the preset fuzz")
  endif()
  target_compile_options(tavimora_options INTERFACE -fsanitize=fuzzer-no-link)
endif()

# The programs read files and replies of strangers: on Linux they are built with what the compiler has against
# overflows, and so that the folder they are built in leaves no trace. The sanitizers look for the same faults in their
# own way, and debuggers find the sources of a debug build by their folder.
if(CMAKE_SYSTEM_NAME STREQUAL "Linux" AND NOT TAVIMORA_SANITIZE AND NOT TAVIMORA_FUZZ)
  include(CheckCXXCompilerFlag)
  include(CheckPIESupported)
  check_pie_supported(LANGUAGES CXX)
  target_compile_options(tavimora_options INTERFACE -fstack-protector-strong)
  foreach(protection stack-clash-protection cf-protection) # not on every processor
    string(MAKE_C_IDENTIFIER "TAVIMORA_HAS_${protection}" known)
    check_cxx_compiler_flag(-f${protection} ${known})
    if(${known})
      target_compile_options(tavimora_options INTERFACE -f${protection})
    endif()
  endforeach()
  # Fortified functions take an optimising compiler, and a distribution may have its own default for them.
  target_compile_options(tavimora_options INTERFACE "$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:\
-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2;\
-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.;-ffile-prefix-map=${PROJECT_BINARY_DIR}=./build>")
  target_link_options(tavimora_options INTERFACE -Wl,-z,relro,-z,now)
elseif(MINGW AND CMAKE_EXE_LINKER_FLAGS MATCHES "-static")
  # The linker itself asks Windows for random addresses and for data that cannot be run. What the rest calls is in a
  # library, which would be one more DLL in a program that is not static.
  target_compile_options(tavimora_options INTERFACE -fstack-protector-strong
    "$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
  target_link_options(tavimora_options INTERFACE -fstack-protector-strong)
endif()

# tavimora_library(NAME SOURCES ... [LINKS ...] [PRIVATE_LINKS ...])
# A static library, one for each folder.
function(tavimora_library name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LINKS;PRIVATE_LINKS")
  add_library(${name} STATIC ${arg_SOURCES})
  target_link_libraries(${name} PUBLIC tavimora_options ${arg_LINKS} PRIVATE ${arg_PRIVATE_LINKS})
endfunction()

# Gives a program its icon, version record and manifest on Windows.
function(tavimora_windows_resources program)
  string(REGEX MATCH "^[0-9]+[.][0-9]+[.][0-9]+[.][0-9]+" version "${PROJECT_VERSION}.0.0.0")
  string(REPLACE "." "," version_numbers "${version}")
  set(templates "${PROJECT_SOURCE_DIR}/packaging/windows")
  configure_file("${templates}/program.rc.in" "${program}.rc" @ONLY)
  configure_file("${templates}/program.manifest.in" "${program}.manifest" @ONLY)
  set_source_files_properties("${CMAKE_CURRENT_BINARY_DIR}/${program}.rc" PROPERTIES OBJECT_DEPENDS
    "${CMAKE_CURRENT_BINARY_DIR}/${program}.manifest;${PROJECT_SOURCE_DIR}/icons/tavimora.ico")
  target_sources(${program} PRIVATE "${CMAKE_CURRENT_BINARY_DIR}/${program}.rc")
  if(MSVC)
    target_link_options(${program} PRIVATE /MANIFEST:NO) # the resources hold one
  endif()
endfunction()

# tavimora_test(NAME [SOURCES ...] LINKS ... [TIMEOUT seconds] [LABELS ...])
# A QtTest executable out of NAME.cpp and the SOURCES, run by CTest, on Qt's offscreen platform unless that is Windows.
function(tavimora_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "TIMEOUT" "SOURCES;LINKS;LABELS")
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 300)
  endif()
  add_executable(${name} ${name}.cpp ${arg_SOURCES})
  if(WIN32)
    target_sources(${name} PRIVATE "${PROJECT_SOURCE_DIR}/tests/support/StandardOutput.cpp")
  endif()
  set_target_properties(${name} PROPERTIES AUTOMOC ON)
  target_link_libraries(${name} PRIVATE tavimora_options ${arg_LINKS} Qt6::Test)
  add_test(NAME ${name} COMMAND ${name})
  set_tests_properties(${name} PROPERTIES TIMEOUT ${arg_TIMEOUT} LABELS "${arg_LABELS}")
  tavimora_test_environment(${name})
endfunction()

# Gives a CTest test the environment that all tests of the project run in.
function(tavimora_test_environment name)
  if(WIN32)
    set(platform windows)
  else()
    set(platform offscreen)
  endif()
  set_property(TEST ${name} APPEND PROPERTY ENVIRONMENT
    "QT_QPA_PLATFORM=${platform}"
    "LC_ALL=C.UTF-8"
    "ASAN_OPTIONS=detect_stack_use_after_return=1"
    "LSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/lsan.supp"
    "TSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/tsan.supp:die_after_fork=0:history_size=7"
    "UBSAN_OPTIONS=print_stacktrace=1")
endfunction()
