# SPDX-License-Identifier: Apache-2.0
# Warnings and sanitizers that every target of this project is built with.
add_library(displayengine_options INTERFACE)
target_compile_options(displayengine_options INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Werror
    $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety -Wthread-safety-beta>)

if(DISPLAYENGINE_SANITIZE)
    add_compile_options(-fsanitize=${DISPLAYENGINE_SANITIZE} -fno-omit-frame-pointer
                        -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${DISPLAYENGINE_SANITIZE})
endif()
