# The compiler flags of our own code: one interface target, linked by every target of the project.
add_library(kv_compile_options INTERFACE)
target_compile_options(kv_compile_options INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion)
if(KV_WARNINGS_AS_ERRORS)
  target_compile_options(kv_compile_options INTERFACE -Werror)
endif()

# A worker that is ended by a signal unwinds from inside a wait: every frame needs its unwind table.
add_compile_options(-fasynchronous-unwind-tables)

if(KV_COVERAGE)
  # The counters are shared by all threads and by forked children: a lost update would lose a line.
  add_compile_options(--coverage -fprofile-update=atomic)
  add_link_options(--coverage)
endif()

if(KV_SANITIZER)
  add_compile_options(-fsanitize=${KV_SANITIZER} -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${KV_SANITIZER})
  if(KV_SANITIZER MATCHES "undefined")
    # null: the runtime hands abi::__forced_unwind to its handlers as a null reference; nobody looks at it.
    # vptr: a host has the headers of the driver's interface, but its type information lives in the driver library.
    add_compile_options(-fno-sanitize-recover=undefined -fno-sanitize=null,vptr)
  endif()
endif()

if(KV_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    message(FATAL_ERROR "KV_FUZZ needs clang: use the preset \"fuzz\"")
  endif()
  # What the fuzzers steer by: every edge that an input takes, and every comparison it meets.
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
