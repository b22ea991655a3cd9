# Tests for another machine run in its emulator.

# Optimises only the code under test: for the tests it costs time, and g++ 12 reports bounds wrongly.
add_compile_options(-O1)

# Debian has GoogleTest as a library for the build machine only, but its sources for all.
set(INSTALL_GTEST OFF)
add_subdirectory(/usr/src/googletest ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
target_compile_options(gtest PRIVATE -O0)

# The shells that tests start belong to the build machine, and its kernel may not know how to start the commands.
set(commands_dir ${PROJECT_BINARY_DIR}/bin-emulated)
foreach(command kcfg nvram)
  file(CONFIGURE OUTPUT ${commands_dir}/${command} @ONLY NEWLINE_STYLE UNIX
       CONTENT "#!/bin/sh\nexec @CMAKE_CROSSCOMPILING_EMULATOR@ \"$(dirname \"$0\")/../bin/@command@\" \"$@\"\n")
  file(CHMOD ${commands_dir}/${command} PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
       WORLD_READ WORLD_EXECUTE)
endforeach()
file(CREATE_LINK ../bin/wl ${commands_dir}/wl SYMBOLIC)  # a script
