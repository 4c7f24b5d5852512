# What the sanitizers report and is meant. One setting: the properties of discovered tests cannot hold a list.
if(KV_SANITIZER MATCHES "thread")
  set(KV_TEST_ENVIRONMENT
    "TSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/tsan.supp:report_signal_unsafe=0:print_suppressions=0")
else()
  set(KV_TEST_ENVIRONMENT "UBSAN_OPTIONS=print_stacktrace=1")
endif()

# What the tests of the driver need; those of the host take much longer to build.
if(NOT TARGET kvdriver_suite)
  add_custom_target(kvdriver_suite)
endif()

# kv_add_tests(<program> <folder> [HOST] [FIXTURE <fixture>] LIBRARIES <libraries>...)
# Builds <folder>/*_test.cpp into one GoogleTest program; each test of it becomes a test of CTest, which runs the
# fixture before it. With HOST the tests have the label "host"; else they have the label "driver", and the target
# kvdriver_suite builds them.
function(kv_add_tests program folder)
  cmake_parse_arguments(ARG "HOST" "FIXTURE" "LIBRARIES" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/*_test.cpp)
  if(NOT sources)
    return()
  endif()
  add_executable(${program} ${sources})
  target_include_directories(${program} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
  target_link_libraries(${program} PRIVATE ${ARG_LIBRARIES} GTest::gmock_main kv_compile_options)
  # Precompiled, the standard library loses its mark as a system header: g++ 12 then warns inside std::string.
  target_precompile_headers(${program} PRIVATE <gmock/gmock.h> <gtest/gtest.h>)
  target_compile_options(${program} PRIVATE
    "$<$<CXX_COMPILER_ID:GNU>:-Wno-array-bounds;-Wno-stringop-overflow;-Wno-restrict>")
  target_compile_definitions(${program} PRIVATE
    KV_BINARY_DIR="${CMAKE_RUNTIME_OUTPUT_DIRECTORY}" KV_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
  set(properties TIMEOUT 180 ENVIRONMENT "${KV_TEST_ENVIRONMENT}" LABELS)
  if(ARG_HOST)
    list(APPEND properties host)
  else()
    list(APPEND properties driver)
    add_dependencies(kvdriver_suite ${program})
  endif()
  if(ARG_FIXTURE)
    list(APPEND properties FIXTURES_REQUIRED ${ARG_FIXTURE})
  endif()
  gtest_discover_tests(${program} DISCOVERY_MODE PRE_TEST PROPERTIES ${properties})
endfunction()
