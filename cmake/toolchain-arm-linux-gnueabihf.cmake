# 32-bit ARM with hardware floating point: most gateways.
set(CMAKE_SYSTEM_PROCESSOR arm)
set(triplet arm-linux-gnueabihf)
set(qemu qemu-arm)
include(${CMAKE_CURRENT_LIST_DIR}/debian_cross.cmake)
