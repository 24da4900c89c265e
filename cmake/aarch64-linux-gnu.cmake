# Cross-compiles for aarch64 on another Debian, whose packages for arm64 lie beside its own, and runs what is built under qemu:
#     cmake --preset arm64
# A build on aarch64 itself needs none of this.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(triplet aarch64-linux-gnu)
set(CMAKE_C_COMPILER ${triplet}-gcc)
set(CMAKE_CXX_COMPILER ${triplet}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${triplet})
# Programs are those of this machine. Headers are common to both, libraries are found in the folder of their architecture.
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/${triplet}/pkgconfig:/usr/share/pkgconfig)
# The libraries of another architecture are in nobody's way: qemu finds them in their folder.
find_program(QEMU_AARCH64 NAMES qemu-aarch64 qemu-aarch64-static)
if(QEMU_AARCH64)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${QEMU_AARCH64})
endif()
