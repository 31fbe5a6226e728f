# How every target of the project is declared: one static library a folder, one test program a folder.

find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(Qt6 6.4 REQUIRED COMPONENTS Core Gui Widgets DBus)
find_package(nlohmann_json REQUIRED)

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
                    -Wno-missing-field-initializers)  # designated initialisers leave out defaults
if(NULO_WARNINGS_AS_ERRORS)
  add_compile_options(-Werror)
endif()

# One set for every optimised build, packages and the companion included.
include(CheckCXXCompilerFlag)
if(CMAKE_BUILD_TYPE MATCHES "Rel")
  include(CheckPIESupported)
  check_pie_supported()
  set(CMAKE_POSITION_INDEPENDENT_CODE ON)
endif()
set(optimised $<CONFIG:Release,RelWithDebInfo,MinSizeRel>)
foreach(flag -fstack-protector-strong -fstack-clash-protection -fcf-protection
             -mbranch-protection=standard)
  string(MAKE_C_IDENTIFIER NULO_HAS${flag} known)
  check_cxx_compiler_flag(${flag} ${known})  # some are one processor's
  if(${known})
    add_compile_options($<${optimised}:${flag}>)
  endif()
endforeach()
add_compile_definitions($<${optimised}:_FORTIFY_SOURCE=2> $<${optimised}:_GLIBCXX_ASSERTIONS>)
add_link_options($<${optimised}:LINKER:-z,relro,-z,now>)

if(NULO_SANITIZE)
  add_compile_options(-fsanitize=${NULO_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${NULO_SANITIZE})
endif()

# nulo_library(<name> <link library>...): a static library of the .cpp files in this folder and in
# its rooms, but for rooms with a list of their own; headers alone make an interface library.
function(nulo_library name)
  file(GLOB sources CONFIGURE_DEPENDS *.cpp *.h */*.cpp */*.h)
  file(GLOB lists */CMakeLists.txt)
  foreach(list ${lists})
    get_filename_component(room ${list} DIRECTORY)
    list(FILTER sources EXCLUDE REGEX "^${room}/")
  endforeach()
  list(FILTER sources EXCLUDE REGEX "/main\\.cpp$|^${CMAKE_CURRENT_SOURCE_DIR}/tests/")
  set(implementation ${sources})
  list(FILTER implementation INCLUDE REGEX "\\.cpp$")
  if(NOT implementation)
    add_library(${name} INTERFACE)
    target_link_libraries(${name} INTERFACE ${ARGN})
    return()
  endif()
  add_library(${name} STATIC ${sources})
  target_link_libraries(${name} PUBLIC ${ARGN})
  set_target_properties(${name} PROPERTIES LINKER_LANGUAGE CXX)
endfunction()

# What the sanitizers build: the tests of parts, without those of the whole program.
add_custom_target(nulo_part_tests)

# nulo_test(<name> <label> <link library>...): a GoogleTest program of the .cpp files in this folder,
# registered with CTest as one case a test.
function(nulo_test name label)
  file(GLOB sources CONFIGURE_DEPENDS *.cpp *.h)
  if(NOT sources)
    return()
  endif()
  add_executable(${name} ${sources})
  target_link_libraries(${name} PRIVATE ${ARGN} nulo_rig nulo_test_support GTest::gmock GTest::gtest_main)
  set(alone OFF)
  if(label STREQUAL "platform")
    set(alone ON)  # its X and sound servers share the processor with no other test
  endif()
  if(NOT label STREQUAL "desktop")
    add_dependencies(nulo_part_tests ${name})
  endif()
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST
    PROPERTIES LABELS ${label} TIMEOUT 120 RUN_SERIAL ${alone})
endfunction()

# What the preset fuzz (clang) is for; tools/fuzz builds and runs it.
add_custom_target(nulo_fuzzers)

# nulo_fuzzer(<name> <corpus> <source> <link library>...): a libFuzzer program, or, where that is not,
# a test that replays the inputs in tests/data/<corpus>.
function(nulo_fuzzer name corpus source)
  add_executable(${name} ${source} ${PROJECT_SOURCE_DIR}/tests/fuzz/Main.cpp)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  target_link_libraries(${name} PRIVATE ${ARGN})
  if(NULO_BUILD_FUZZERS)
    target_compile_definitions(${name} PRIVATE NULO_FUZZING)
    target_link_options(${name} PRIVATE -fsanitize=fuzzer)
    add_dependencies(nulo_fuzzers ${name})
  else()
    add_dependencies(nulo_part_tests ${name})
    add_test(NAME ${name} COMMAND ${name} ${PROJECT_SOURCE_DIR}/tests/data/${corpus})
    set_tests_properties(${name} PROPERTIES LABELS unit TIMEOUT 120)
  endif()
endfunction()
