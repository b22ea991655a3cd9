# Builds for this machine's processor with musl, the C library of most gateways. g++'s own headers need glibc, libc++'s
# do not. Neither C++ library can be linked.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${CMAKE_HOST_SYSTEM_PROCESSOR})
set(CMAKE_C_COMPILER musl-gcc)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_CXX_COMPILER_WORKS ON)  # not tried: a C++ program would not link
set(CMAKE_CXX_ABI_COMPILED OFF)   # not tried either: it would find the libraries of a program for glibc
set(CMAKE_CXX_FLAGS_INIT "-D_LIBCPP_HAS_MUSL_LIBC -nostdlibinc -isystem /usr/include/c++/v1 \
-isystem /usr/include/${CMAKE_SYSTEM_PROCESSOR}-linux-musl")
