option(TQ_WARNINGS_AS_ERRORS "Treat warnings as errors" ON)
option(TQ_SANITIZE "Build with the address and undefined behaviour sanitizers" OFF)
option(TQ_COVERAGE "Build with line coverage counters" OFF)

# Language level, warnings and instrumentation of every target of this tree, in one interface target.
add_library(tq_compile_options INTERFACE)
target_compile_features(tq_compile_options INTERFACE cxx_std_20)
set_target_properties(tq_compile_options PROPERTIES INTERFACE_POSITION_INDEPENDENT_CODE ON)
target_compile_options(tq_compile_options INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion
    $<$<BOOL:${TQ_WARNINGS_AS_ERRORS}>:-Werror>
    # Once it optimizes, g++ 12 warns of overlaps inside std::string's own operator+ and of unset values in an
    # std::optional that is moved, where there are none; the other builds and clang keep looking.
    $<$<AND:$<CONFIG:Release>,$<CXX_COMPILER_ID:GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>>:-Wno-restrict
        -Wno-maybe-uninitialized>)
target_include_directories(tq_compile_options INTERFACE ${CMAKE_SOURCE_DIR})

if(TQ_SANITIZE)
    target_compile_options(tq_compile_options INTERFACE
        -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer
        # With its sanitizers on, g++ sees unset values in std::regex where there are none.
        $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
    target_link_options(tq_compile_options INTERFACE -fsanitize=address,undefined)
endif()
if(TQ_COVERAGE)
    target_compile_options(tq_compile_options INTERFACE --coverage -fprofile-update=atomic)
    target_link_options(tq_compile_options INTERFACE --coverage)
endif()

# tq_add_library(<target> SOURCES ... [PUBLIC libraries] [PRIVATE libraries])
# One static library of one folder. A library does not name `platform` here: a program links the real one,
# a unit test the fakes, and only the last link decides.
function(tq_add_library target)
    cmake_parse_arguments(ARG "" "" "SOURCES;PUBLIC;PRIVATE" ${ARGN})
    add_library(${target} STATIC ${ARG_SOURCES})
    target_link_libraries(${target} PUBLIC tq_compile_options ${ARG_PUBLIC} PRIVATE ${ARG_PRIVATE})
endfunction()

# tq_add_unit_test(<target> SOURCES ... LIBRARIES ... [NO_KEPT_BLOCKS])
# One test program of one folder. It runs in a sandbox of its own, where /usr/torqv is empty and writable.
# NO_KEPT_BLOCKS: nothing in it needs tests/lsan.supp, so a sanitized build need not unwind the slow way, which
# takes a program full of TLS ten times as long.
function(tq_add_unit_test target)
    cmake_parse_arguments(ARG "NO_KEPT_BLOCKS" "" "SOURCES;LIBRARIES" ${ARGN})
    add_executable(${target} ${ARG_SOURCES})
    target_link_libraries(${target} PRIVATE tq_compile_options ${ARG_LIBRARIES} GTest::gmock GTest::gtest_main)
    target_compile_definitions(${target} PRIVATE TQ_SOURCE_DIR="${CMAKE_SOURCE_DIR}")
    add_test(NAME ${target} COMMAND ${CMAKE_SOURCE_DIR}/tests/unit/in-sandbox $<TARGET_FILE:${target}>)
    set_tests_properties(${target} PROPERTIES TIMEOUT 1200)
    if(ARG_NO_KEPT_BLOCKS)
        set_tests_properties(${target} PROPERTIES ENVIRONMENT ASAN_OPTIONS=fast_unwind_on_malloc=1)
    endif()
endfunction()
