# How our own code is compiled. Nothing here reaches a user of the installed library.
include(GNUInstallDirs)
set(THREADS_PREFER_PTHREAD_FLAG ON)
find_package(Threads REQUIRED)

add_library(kpl_warnings INTERFACE)
target_compile_options(kpl_warnings INTERFACE
  -Wall -Wextra -Wshadow -Wconversion -Wsign-conversion -Wformat=2 -Wnon-virtual-dtor
  -Woverloaded-virtual -Wcast-align -Wundef)
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  target_compile_options(kpl_warnings INTERFACE -Wthread-safety -Wthread-safety-beta)
endif()
if(KPL_WERROR)
  target_compile_options(kpl_warnings INTERFACE -Werror)
endif()

if(KPL_SANITIZE)
  add_compile_options(-fsanitize=${KPL_SANITIZE} -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${KPL_SANITIZE})
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # Instrumented, parts of the standard library (std::regex) look uninitialised to it. The builds
    # without a sanitizer do look.
    target_compile_options(kpl_warnings INTERFACE -Wno-maybe-uninitialized)
  endif()
  if(KPL_SANITIZE MATCHES "undefined")
    add_compile_options(-fno-sanitize-recover=all)
    if(NOT KPL_SANITIZE MATCHES "address")
      # Its check of virtual calls opens descriptors. Tests that leave none can see the address sanitizer
      # and skip themselves, but not this one alone.
      add_compile_options(-fno-sanitize=vptr)
    endif()
  endif()
endif()
