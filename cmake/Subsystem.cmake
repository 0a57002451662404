# telmoraq_subsystem(NAME DIR DEPS...)
#
# Builds a static library NAME from every .cpp below DIR, leaving out the
# platform implementations of other systems (win32/) and program entry points
# (main.cpp). A folder without sources yet becomes an interface library, so that
# the dependency graph stands from the first commit on.
function(telmoraq_subsystem name dir)
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/${dir}/*.cpp)
  list(FILTER sources EXCLUDE REGEX "/win32/")
  list(FILTER sources EXCLUDE REGEX "/main\\.cpp$")
  if(sources)
    add_library(${name} STATIC ${sources})
    target_include_directories(${name} PUBLIC ${CMAKE_SOURCE_DIR}/src)
    target_link_libraries(${name} PUBLIC ${ARGN})
  else()
    add_library(${name} INTERFACE)
    target_include_directories(${name} INTERFACE ${CMAKE_SOURCE_DIR}/src)
    target_link_libraries(${name} INTERFACE ${ARGN})
  endif()
endfunction()

# telmoraq_test_suite(NAME DIR DEPS...)
#
# One GoogleTest program per tested folder, from every .cpp below it.
function(telmoraq_test_suite name dir)
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/${dir}/*.cpp)
  if(NOT sources)
    return()
  endif()
  add_executable(${name} ${sources})
  target_link_libraries(${name} PRIVATE ${ARGN} testsupport GTest::gtest GTest::gtest_main)
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60
                       PROPERTIES ENVIRONMENT "${TELMORAQ_TEST_ENV}"
                                  LABELS ${name})
endfunction()
