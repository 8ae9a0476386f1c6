# Cross build for 32-bit ARM hard-float (armhf) on a Debian build machine. The target has 32-bit
# size_t, long and pointers, and an unsigned plain char.
#
# Compiler, C and C++ run-time libraries: Debian's cross toolchain (crossbuild-essential-armhf).
# Libraries the project depends on: armhf Debian packages unpacked under DME_ARMHF_ROOT by
# scripts/fetch-armhf-packages.sh. Executables built here run on the build machine under qemu-arm,
# so ctest and gtest_discover_tests work as in a native build.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

set(DME_CROSS_TRIPLET arm-linux-gnueabihf)
set(CMAKE_C_COMPILER ${DME_CROSS_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${DME_CROSS_TRIPLET}-g++)

set(DME_ARMHF_ROOT "" CACHE PATH "Directory holding the unpacked armhf packages (usr/...)")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES DME_ARMHF_ROOT)
set(DME_ARMHF_LIBDIR ${DME_ARMHF_ROOT}/usr/lib/${DME_CROSS_TRIPLET})
if(NOT IS_DIRECTORY "${DME_ARMHF_LIBDIR}")
    message(FATAL_ERROR "DME_ARMHF_ROOT must name the directory that "
                        "scripts/fetch-armhf-packages.sh filled; ${DME_ARMHF_LIBDIR} is missing")
endif()

# Debian's cross compiler also searches the build machine's /usr/include; the unpacked armhf
# headers come first. -Wno-psabi silences GCC's notes that the ARM argument passing of some
# types changed in GCC 7.1: everything here is built by one compiler.
set(CMAKE_C_FLAGS_INIT "-isystem ${DME_ARMHF_ROOT}/usr/include")
set(CMAKE_CXX_FLAGS_INIT "-isystem ${DME_ARMHF_ROOT}/usr/include -Wno-psabi")
# Lets the linker resolve the libraries that the unpacked libraries themselves need.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,-rpath-link,${DME_ARMHF_LIBDIR}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-Wl,-rpath-link,${DME_ARMHF_LIBDIR}")

# Programs from the build machine; libraries, headers and CMake packages from the armhf root only.
set(CMAKE_FIND_ROOT_PATH ${DME_ARMHF_ROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# pkg-config sees the armhf .pc files only, with their paths moved under the armhf root.
set(ENV{PKG_CONFIG_LIBDIR} ${DME_ARMHF_LIBDIR}/pkgconfig)
set(ENV{PKG_CONFIG_PATH} "")
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${DME_ARMHF_ROOT})

# qemu-arm takes the dynamic loader and the C and C++ run-time libraries from the cross toolchain
# and the other libraries from the armhf root.
set(CMAKE_CROSSCOMPILING_EMULATOR
    qemu-arm -L /usr/${DME_CROSS_TRIPLET} -E LD_LIBRARY_PATH=${DME_ARMHF_LIBDIR})
