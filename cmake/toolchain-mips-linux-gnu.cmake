# 32-bit big-endian MIPS: older gateways. Debian has a compiler and a C library for it, in a separate directory.
set(CMAKE_SYSTEM_PROCESSOR mips)
set(triplet mips-linux-gnu)
set(qemu qemu-mips -L /usr/${triplet})
include(${CMAKE_CURRENT_LIST_DIR}/debian_cross.cmake)
