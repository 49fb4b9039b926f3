# Warnings and sanitizers for everything, and the flags of the library's own sources.

add_compile_options(-Wall -Wextra -Wshadow)
if(QOR_WERROR)
  add_compile_options(-Werror)
endif()

if(QOR_SANITIZE)
  # The library takes images at any address, so misaligned pointers are no finding.
  set(QOR_SANITIZE_FLAGS -fsanitize=${QOR_SANITIZE} -fno-sanitize=alignment -fno-sanitize-recover=all
                         -fno-omit-frame-pointer -g)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    # Instrumented loops are not vectorized; Clang says so for each that asks for it.
    list(APPEND QOR_SANITIZE_FLAGS -Wno-pass-failed)
  endif()
  if(NOT QOR_LEVELS STREQUAL "all")
    add_compile_options(${QOR_SANITIZE_FLAGS})
    add_link_options(-fsanitize=${QOR_SANITIZE})
  endif()
endif()

# Nothing here may reorder float arithmetic; wrap-around of integers is defined, since contracts rely on it.
set(QOR_LIBRARY_FLAGS
    -Wconversion -Wno-sign-conversion -fwrapv -ffp-contract=off -fno-math-errno -fno-trapping-math -fno-exceptions
    -fno-rtti -fvisibility=hidden)
if(NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
  list(APPEND QOR_LIBRARY_FLAGS -O3)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # Images may start at odd addresses, for which peeling a loop until its pointer is aligned never ends.
  list(APPEND QOR_LIBRARY_FLAGS --param=vect-max-peeling-for-alignment=0)
endif()

set(QOR_MACHINE_v1 -march=x86-64)
set(QOR_MACHINE_v3 -march=x86-64-v3)
set(QOR_MACHINE_v4 -march=x86-64-v4 -mprefer-vector-width=512)
set(QOR_MACHINE_native -march=native)
