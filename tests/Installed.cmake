# SPDX-License-Identifier: Apache-2.0
# Tests of what leaves the build: the library's symbols, the installed package and tools.

# Other compilers and sanitizers emit other helper symbols beside the library's own.
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_BUILD_TYPE STREQUAL Release
        AND NOT DISPLAYENGINE_SANITIZE)
    add_test(NAME ExportedSymbols
        COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/ExportedSymbols.sh ${CMAKE_NM}
            $<TARGET_FILE:displayengine> ${CMAKE_CURRENT_SOURCE_DIR}/data/exported-symbols.txt)
endif()

# A program of a library with sanitizers is built with them too.
set(consumer_flags ${CMAKE_CXX_FLAGS})
if(DISPLAYENGINE_SANITIZE)
    string(APPEND consumer_flags " -fsanitize=${DISPLAYENGINE_SANITIZE}")
endif()
foreach(way cmake pkg-config)
    add_test(NAME InstalledPackage.${way}
        COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/InstalledPackage.sh ${way} ${PROJECT_BINARY_DIR}
            ${CMAKE_CURRENT_SOURCE_DIR}/consumer ${CMAKE_COMMAND} ${CMAKE_CXX_COMPILER}
            "${consumer_flags}" ${CMAKE_CROSSCOMPILING_EMULATOR})
    # Both write the manifest of the installation in the build tree.
    set_tests_properties(InstalledPackage.${way} PROPERTIES
        RESOURCE_LOCK install_manifest TIMEOUT 240)
endforeach()

# A launcher without the sanitizer cannot load a plugin with it.
if(TARGET gstdisplayengine AND NOT DISPLAYENGINE_SANITIZE)
    foreach(page README docs/pipeline)
        add_test(NAME InstalledPipeline.${page}
            COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/gstreamer/InstalledPipeline.sh
                ${PROJECT_SOURCE_DIR}/${page}.md ${PROJECT_BINARY_DIR} ${CMAKE_COMMAND})
        set_tests_properties(InstalledPipeline.${page} PROPERTIES
            RESOURCE_LOCK install_manifest TIMEOUT 120)
    endforeach()
endif()

add_test(NAME InstalledTools
    COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/InstalledTools.sh ${PROJECT_BINARY_DIR} ${CMAKE_COMMAND}
        ${CMAKE_CXX_COMPILER} ${PROJECT_VERSION} ${CMAKE_CROSSCOMPILING_EMULATOR})
set_tests_properties(InstalledTools PROPERTIES RESOURCE_LOCK install_manifest TIMEOUT 240)
