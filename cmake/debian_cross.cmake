# Settings shared by Debian's cross compilers. The includer has set `triplet`, `qemu` and CMAKE_SYSTEM_PROCESSOR.
#
# json-c and the C++ runtime of the target come from Debian's multiarch packages and lie where the target's own loader
# looks, so the emulator needs no root directory of its own.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${triplet}-gcc)
set(CMAKE_CXX_COMPILER ${triplet}-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR ${qemu})
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/${triplet}/pkgconfig:/usr/share/pkgconfig)
