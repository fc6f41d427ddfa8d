# SPDX-License-Identifier: Apache-2.0
# GStreamer's development files, as PkgConfig::GSTREAMER.
find_package(PkgConfig REQUIRED)

# GStreamer's module names the one of libunwind, which nothing here needs. Debian's package with
# that module cannot be installed beside the one that libc++ takes.
pkg_check_modules(LIBUNWIND QUIET libunwind)
if(NOT LIBUNWIND_FOUND)
    file(WRITE ${PROJECT_BINARY_DIR}/pkgconfig/libunwind.pc
         "Name: libunwind\nDescription: nothing\nVersion: 1.6\n")
    set(ENV{PKG_CONFIG_PATH} "$ENV{PKG_CONFIG_PATH}:${PROJECT_BINARY_DIR}/pkgconfig")
endif()
pkg_check_modules(GSTREAMER REQUIRED IMPORTED_TARGET gstreamer-1.0>=1.22 gstreamer-video-1.0>=1.22)
