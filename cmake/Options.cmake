# One interface target carries the language level, the warnings and Qt's strictness to every target of the project.
add_library(skylet_options INTERFACE)
target_compile_features(skylet_options INTERFACE cxx_std_20)
target_compile_options(skylet_options INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Wold-style-cast -Wnon-virtual-dtor
  -Woverloaded-virtual -Wcast-align -Wformat=2 -Wimplicit-fallthrough -Wduplicated-cond -Wlogical-op)
set(CMAKE_COMPILE_WARNING_AS_ERROR ON CACHE BOOL "Off for compilers and libraries newer than those tried here")
target_compile_definitions(skylet_options INTERFACE
  QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII QT_NO_CAST_FROM_BYTEARRAY QT_NO_URL_CAST_FROM_STRING
  QT_STRICT_ITERATORS QT_NO_FOREACH QT_NO_KEYWORDS QT_NO_NARROWING_CONVERSIONS_IN_CONNECT
  QT_DISABLE_DEPRECATED_BEFORE=0x060400)
target_include_directories(skylet_options INTERFACE ${PROJECT_SOURCE_DIR}/src ${PROJECT_BINARY_DIR}/generated)

if(CMAKE_UNITY_BUILD)
  # Fixtures in anonymous namespaces look to the compiler as if they stood in a header then.
  add_compile_options(-Wno-subobject-linkage)
endif()

# The sanitizers are options of the whole build, so that no target can be left out.
option(SKYLET_SANITIZE "Build with AddressSanitizer and UndefinedBehaviorSanitizer" OFF)
option(SKYLET_SANITIZE_THREADS "Build with ThreadSanitizer" OFF)
option(SKYLET_FUZZ "Build tests/fuzz with libFuzzer, which only clang has" OFF)
if(SKYLET_FUZZ)
  # Some of the warnings above are GCC's own.
  add_compile_options(-fsanitize=fuzzer-no-link -Wno-unknown-warning-option)
endif()
if(SKYLET_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
elseif(SKYLET_SANITIZE_THREADS)
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
elseif(CMAKE_BUILD_TYPE STREQUAL "Release")
  set(CMAKE_POSITION_INDEPENDENT_CODE ON)
  # Some compilers define _FORTIFY_SOURCE by themselves, and differently.
  add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3 -fstack-protector-strong -fstack-clash-protection)
  add_link_options(-pie -Wl,-z,relro,-z,now,--as-needed)
  # Nothing in the program tells in which folder it was built.
  add_compile_options(-ffile-prefix-map=${PROJECT_SOURCE_DIR}=. -ffile-prefix-map=${PROJECT_BINARY_DIR}=build)
endif()

find_program(CCACHE ccache)
if(CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE})
endif()
