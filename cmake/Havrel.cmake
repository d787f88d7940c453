# Helpers shared by every folder's CMakeLists.

# havrel_library(NAME DEPS dep...)
# One static library per src/ folder; its sources are the folder's .cpp files (subfolders
# included). Includes are written from src/.
function(havrel_library name)
  cmake_parse_arguments(ARG "" "" "DEPS" ${ARGN})
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  add_library(${name} STATIC ${sources})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(${name} PUBLIC ${ARG_DEPS})
endfunction()

# havrel_test_suite(NAME LIBS lib... [LABELS label...])
# Called from a tests/ folder: one GoogleTest executable NAME_tests of the folder's .cpp files,
# discovered into CTest with its labels (default: unit).
function(havrel_test_suite name)
  cmake_parse_arguments(ARG "" "" "LIBS;LABELS" ${ARGN})
  if(NOT ARG_LABELS)
    set(ARG_LABELS unit)
  endif()
  set(target ${name}_tests)
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  add_executable(${target} ${sources})
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  target_link_libraries(${target} PRIVATE ${ARG_LIBS} GTest::gmock GTest::gtest GTest::gtest_main)
  list(GET ARG_LABELS 0 first_label)
  gtest_discover_tests(${target} PROPERTIES LABELS ${first_label} DISCOVERY_TIMEOUT 60)
  # Discovery passes a list-valued property on flattened, so several labels are set by a script
  # that CTest includes after the discovered tests (which leave their names in NAME_TESTS).
  list(LENGTH ARG_LABELS label_count)
  if(label_count GREATER 1)
    set(labels_script ${CMAKE_CURRENT_BINARY_DIR}/${target}_labels.cmake)
    file(WRITE ${labels_script}
      "if(${target}_TESTS)\n"
      "  set_tests_properties(\${${target}_TESTS} PROPERTIES LABELS \"${ARG_LABELS}\")\n"
      "endif()\n")
    set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${labels_script})
  endif()
endfunction()

# havrel_benchmark(NAME LIBS lib...): bench/NAME.cpp as a Google Benchmark program.
function(havrel_benchmark name)
  cmake_parse_arguments(ARG "" "" "LIBS" ${ARGN})
  add_executable(bench_${name} ${CMAKE_CURRENT_SOURCE_DIR}/${name}.cpp)
  target_link_libraries(bench_${name} PRIVATE ${ARG_LIBS} benchmark::benchmark)
endfunction()

# havrel_fuzz_target(NAME LIBS lib...): fuzz/NAME.cpp defines LLVMFuzzerTestOneInput.
# With HAVREL_FUZZ it links libFuzzer; otherwise it links a small driver that replays the seed
# corpus in fuzz/corpus/NAME, registered as a CTest test labelled "fuzz", so every target stays
# compiled and its seeds stay harmless in the ordinary build.
function(havrel_fuzz_target name)
  cmake_parse_arguments(ARG "" "" "LIBS" ${ARGN})
  set(target fuzz_${name})
  add_executable(${target} ${CMAKE_CURRENT_SOURCE_DIR}/${name}.cpp)
  target_link_libraries(${target} PRIVATE ${ARG_LIBS})
  if(HAVREL_FUZZ)
    target_link_options(${target} PRIVATE -fsanitize=fuzzer)
  else()
    target_sources(${target} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/replay_main.cpp)
    set(corpus ${CMAKE_CURRENT_SOURCE_DIR}/corpus/${name})
    add_test(NAME fuzz_replay_${name} COMMAND ${target} ${corpus})
    set_tests_properties(fuzz_replay_${name} PROPERTIES LABELS fuzz)
  endif()
endfunction()
