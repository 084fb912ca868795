# Compiler and linker flags, as two interface targets: `velmora_flags` for everything of ours and
# `velmora_server_flags` for what ends up in Velmora_server (no exceptions, unused code dropped).

set(VELMORA_SANITIZE "" CACHE STRING "Sanitizers to build with, as -fsanitize takes them")
option(VELMORA_COVERAGE "Instrument for line coverage" OFF)

add_library(velmora_flags INTERFACE)
target_include_directories(velmora_flags INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_options(velmora_flags INTERFACE
  -Wall -Wextra -Werror -Wshadow -Wconversion -Wformat=2 -Wmissing-declarations
  -Wimplicit-fallthrough -Wcast-align -Wundef
  -fstack-protector-strong -fPIE)
target_link_options(velmora_flags INTERFACE
  $<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:-pie> -Wl,-z,relro,-z,now,-z,noexecstack)
target_link_libraries(velmora_flags INTERFACE Threads::Threads)

if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  # Or the clock would end in January 2038.
  target_compile_definitions(velmora_flags INTERFACE _TIME_BITS=64 _FILE_OFFSET_BITS=64)
endif()
if(VELMORA_SANITIZE)
  target_compile_options(velmora_flags INTERFACE
    -fsanitize=${VELMORA_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(velmora_flags INTERFACE -fsanitize=${VELMORA_SANITIZE})
elseif(NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
  # The fortified C library calls need optimisation and disturb the sanitizers, which a target of its own may
  # have (fuzz/CMakeLists.txt).
  target_compile_options(velmora_flags INTERFACE
    "$<$<NOT:$<BOOL:$<TARGET_PROPERTY:VELMORA_CHECKED>>>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
endif()
if(VELMORA_COVERAGE)
  target_compile_options(velmora_flags INTERFACE --coverage -fprofile-update=atomic) # threads count, too
  target_link_options(velmora_flags INTERFACE --coverage)
endif()
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  target_compile_options(velmora_flags INTERFACE -Wthread-safety)
  if(VELMORA_SANITIZE)
    target_compile_options(velmora_flags INTERFACE
      -fsanitize-ignorelist=${PROJECT_SOURCE_DIR}/cmake/sanitizer_ignore.txt)
  endif()
else()
  target_compile_options(velmora_flags INTERFACE -Wlogical-op -Wduplicated-cond)
endif()

add_library(velmora_server_flags INTERFACE)
target_link_libraries(velmora_server_flags INTERFACE velmora_flags)
target_compile_options(velmora_server_flags INTERFACE
  -fno-exceptions -ffunction-sections -fdata-sections)
target_link_options(velmora_server_flags INTERFACE -Wl,--gc-sections)
