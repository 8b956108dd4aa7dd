# GoogleTest as a package; for another port than the host's, from the sources that its package brings.
if(CMAKE_CROSSCOMPILING)
  if(NOT TARGET gtest)
    set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
    set(kpl_googletest_shared "${BUILD_SHARED_LIBS}")
    set(BUILD_SHARED_LIBS OFF)
    add_subdirectory(/usr/src/googletest "${PROJECT_BINARY_DIR}/googletest" EXCLUDE_FROM_ALL)
    set(BUILD_SHARED_LIBS "${kpl_googletest_shared}")
  endif()
else()
  find_package(GTest REQUIRED)
endif()
include(GoogleTest)

# The words before a program of this build: on another port than the host's, its emulator.
list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " kpl_emulator)

# After so many seconds a test hangs. An emulator on a busy host takes its time.
set(kpl_test_timeout 120)
if(CMAKE_CROSSCOMPILING_EMULATOR)
  set(kpl_test_timeout 600)
endif()
