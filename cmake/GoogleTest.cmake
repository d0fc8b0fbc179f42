# GoogleTest for the test suite: the distribution's package when building
# for this machine; when cross-compiling, built from the sources Debian ships
# (package googletest, /usr/src/googletest) with the cross compiler, since
# the packaged libraries are for this machine only.
if(TARGET GTest::gtest)
  return()
endif()
if(CMAKE_CROSSCOMPILING)
  set(ZENTOR_GOOGLETEST_SOURCE /usr/src/googletest CACHE PATH
      "GoogleTest sources, built with the cross compiler")
  set(BUILD_GMOCK OFF CACHE BOOL "" FORCE)
  set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
  set(gtest_force_shared_crt ON CACHE BOOL "" FORCE)
  add_subdirectory(${ZENTOR_GOOGLETEST_SOURCE} ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
  # Not our code: its warnings stay warnings.
  target_compile_options(gtest PRIVATE -Wno-error)
  target_compile_options(gtest_main PRIVATE -Wno-error)
  if(NOT TARGET GTest::gtest)
    add_library(GTest::gtest ALIAS gtest)
    add_library(GTest::gtest_main ALIAS gtest_main)
  endif()
else()
  find_package(GTest REQUIRED)
endif()
include(GoogleTest)
