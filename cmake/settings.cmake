# Compiler settings shared by every target of the project.

# Sanitizers of the asan (and tsan) presets apply to everything that is built, tests included.
set(ND_SANITIZE "" CACHE STRING "Sanitizers to build with, e.g. address;undefined")
if(ND_SANITIZE)
  list(JOIN ND_SANITIZE "," nd_sanitize_list)
  add_compile_options(-fsanitize=${nd_sanitize_list} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${nd_sanitize_list})
endif()

# Warnings that project code must be free of.
set(ND_WARNINGS -Wall -Wextra -Werror)

# The interactive shell, the service and SQLite exist only for the build host: Debian ships
# no big-endian MIPS builds of SQLite or libedit.
if(CMAKE_CROSSCOMPILING)
  set(NDSIM_HOST_TOOLS OFF)
  set(NDSIM_WITH_SQLITE OFF)
else()
  set(NDSIM_HOST_TOOLS ON)
  set(NDSIM_WITH_SQLITE ON)
endif()

# Tools used by the tests that inspect the built library.
if(CMAKE_CROSSCOMPILING)
  set(ND_READELF ${CMAKE_READELF})
  set(ND_NM ${CMAKE_NM})
else()
  find_program(ND_READELF readelf REQUIRED)
  find_program(ND_NM nm REQUIRED)
endif()
