# Warnings are for our own sources only, so they live in an interface target that is linked PRIVATE.
add_library(plx-warnings INTERFACE)
target_compile_options(plx-warnings INTERFACE -Wall -Wextra -Wconversion -Wshadow -Werror)

# Everything that applies to the whole build: hardening, sanitizers, coverage, the compiler cache.
find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
endif()

add_compile_options(-fstack-protector-strong -fstack-clash-protection -fno-strict-aliasing)
if(CMAKE_SYSTEM_PROCESSOR STREQUAL "x86_64")
  add_compile_options(-fcf-protection)
endif()
add_compile_definitions(_GLIBCXX_ASSERTIONS)
add_link_options(-Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
if(NOT CMAKE_BUILD_TYPE STREQUAL "Debug" AND NOT PLX_SANITIZE)
  # In one piece, because definitions stand before options and would be taken back again.
  add_compile_options("SHELL:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2")
endif()

if(PLX_SANITIZE)
  add_compile_options(-fsanitize=${PLX_SANITIZE} -fno-omit-frame-pointer -O1)
  add_link_options(-fsanitize=${PLX_SANITIZE})
  if(PLX_SANITIZE MATCHES "undefined")
    add_compile_options(-fno-sanitize-recover=undefined)
  endif()
endif()
if(PLX_COVERAGE)
  # Counters are kept in the profile's file itself, so that a process which dies on purpose has counted too.
  add_compile_options(-fprofile-instr-generate -fcoverage-mapping -mllvm -runtime-counter-relocation)
  add_link_options(-fprofile-instr-generate)
  # clang 14 knows the coroutines of the standard, but does not say so to the libraries.
  add_compile_definitions(__cpp_impl_coroutine=201902L BOOST_ASIO_HAS_CO_AWAIT=1 BOOST_ASIO_HAS_STD_COROUTINE=1)
endif()

include(CheckPIESupported)
check_pie_supported()
