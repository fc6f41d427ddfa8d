# SPDX-License-Identifier: Apache-2.0
# GoogleTest for the C++ runtime that is built with. The distribution's build of it is made for the
# build machine with libstdc++; for anything else it is built from the distribution's sources.
include(CheckCXXSymbolExists)
check_cxx_symbol_exists(_LIBCPP_VERSION version DISPLAYENGINE_LIBCXX)

if(DISPLAYENGINE_LIBCXX OR CMAKE_CROSSCOMPILING)
    set(DISPLAYENGINE_GOOGLETEST_DIR /usr/src/googletest CACHE PATH "Sources of GoogleTest")
    if(NOT EXISTS ${DISPLAYENGINE_GOOGLETEST_DIR}/CMakeLists.txt)
        message(FATAL_ERROR "No sources of GoogleTest in ${DISPLAYENGINE_GOOGLETEST_DIR} "
                            "(Debian's package googletest has them)")
    endif()
    set(BUILD_GMOCK OFF CACHE BOOL "")
    set(INSTALL_GTEST OFF CACHE BOOL "")
    if(NOT TARGET gtest)
        add_subdirectory(${DISPLAYENGINE_GOOGLETEST_DIR} ${PROJECT_BINARY_DIR}/googletest
                         EXCLUDE_FROM_ALL)
    endif()
else()
    find_package(GTest REQUIRED)
endif()
include(GoogleTest)
