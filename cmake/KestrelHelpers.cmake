# Build rules shared by every part of Kestrel: one helper per kind of rule.

# The tree is kept clean under GCC and Clang with these; the presets make
# them errors (KESTREL_WARNINGS_AS_ERRORS).
function(kestrel_set_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow
                                           -Wnon-virtual-dtor -Wno-missing-field-initializers
                                           $<$<BOOL:${KESTREL_WARNINGS_AS_ERRORS}>:-Werror>)
endfunction()

# Address and undefined-behaviour sanitizers for everything built after this
# call. No recovery: the first finding stops the process and fails the test.
macro(kestrel_enable_sanitizers)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined -fno-sanitize-recover=all)
endmacro()

# kestrel_add_component(NAME [DEPS target...])
# Adds src/NAME/*.cpp to the kestrel library. A new source file in the folder
# is picked up at the next build; no list to keep by hand.
function(kestrel_add_component name)
  cmake_parse_arguments(ARG "" "" "DEPS" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/src/${name}/*.cpp")
  target_sources(kestrel PRIVATE ${sources})
  if(ARG_DEPS)
    target_link_libraries(kestrel PRIVATE ${ARG_DEPS})
  endif()
endfunction()

# kestrel_add_test(SUBSYSTEM [LABELS label...] [DEPS target...])
# One GoogleTest binary per subsystem, made of every tests/SUBSYSTEM/*_test.cpp;
# each test case becomes a CTest test carrying the labels (default: unit),
# except suites named *Integration*, labelled integration.
function(kestrel_add_test subsystem)
  cmake_parse_arguments(ARG "" "" "LABELS;DEPS" ${ARGN})
  if(NOT ARG_LABELS)
    set(ARG_LABELS unit)
  endif()
  file(GLOB sources CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/${subsystem}/*_test.cpp")
  if(NOT sources)
    message(WARNING "tests/${subsystem} has no *_test.cpp yet")
    return()
  endif()
  set(target ${subsystem}_test)
  add_executable(${target} ${sources})
  target_link_libraries(${target} PRIVATE Kestrel::kestrel GTest::gtest GTest::gtest_main
                                          ${ARG_DEPS})
  target_include_directories(${target} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/support)
  kestrel_set_warnings(${target})
  # Suites named *Integration* run whole components together (real files,
  # child processes) and carry the integration label; the rest carry LABELS.
  gtest_discover_tests(${target} TEST_FILTER "-*Integration*"
                       PROPERTIES LABELS "${ARG_LABELS}" DISCOVERY_TIMEOUT 60)
  gtest_discover_tests(${target} TEST_FILTER "*Integration*"
                       PROPERTIES LABELS integration DISCOVERY_TIMEOUT 60)
endfunction()

# kestrel_add_benchmark(NAME [DEPS target...]): bench/NAME.cpp with Google Benchmark.
function(kestrel_add_benchmark name)
  cmake_parse_arguments(ARG "" "" "DEPS" ${ARGN})
  add_executable(${name} ${name}.cpp)
  target_link_libraries(${name} PRIVATE Kestrel::kestrel benchmark::benchmark ${ARG_DEPS})
  target_include_directories(${name} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
  kestrel_set_warnings(${name})
endfunction()

# kestrel_add_fuzzer(NAME): fuzz/NAME.cpp, a libFuzzer entry point.
# With KESTREL_BUILD_FUZZERS (Clang) it becomes a fuzzer; otherwise a replay
# program that feeds it every file of fuzz/corpus/NAME/, run as a test, so the
# corpus keeps guarding the parser in every build.
function(kestrel_add_fuzzer name)
  if(KESTREL_BUILD_FUZZERS)
    add_executable(${name} ${name}.cpp)
    target_link_libraries(${name} PRIVATE Kestrel::kestrel)
    target_compile_options(${name} PRIVATE -fsanitize=fuzzer)
    target_link_options(${name} PRIVATE -fsanitize=fuzzer)
  else()
    add_executable(${name}_replay ${name}.cpp replay_main.cpp)
    target_link_libraries(${name}_replay PRIVATE Kestrel::kestrel)
    kestrel_set_warnings(${name}_replay)
    add_test(NAME fuzz.${name}.replay
             COMMAND ${name}_replay ${CMAKE_CURRENT_SOURCE_DIR}/corpus/${name})
    set_tests_properties(fuzz.${name}.replay PROPERTIES LABELS unit)
  endif()
endfunction()
