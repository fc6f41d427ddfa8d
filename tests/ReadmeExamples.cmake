# SPDX-License-Identifier: Apache-2.0
# The examples of the README as sources of a test, so that what a reader copies is what compiles.

# readme_example(NAME SOURCE): makes the first C++ block after the README's line
# "<!-- example: NAME -->" a source file of its own, and sets SOURCE to its path. Errors of the
# compiler name the README's lines.
function(readme_example name source)
    set(readme ${PROJECT_SOURCE_DIR}/README.md)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${readme})
    file(READ ${readme} text)
    set(begin "<!-- example: ${name} -->\n```cpp\n")
    string(FIND "${text}" "${begin}" position)
    if(position EQUAL -1)
        message(FATAL_ERROR "README.md has no example '${name}'")
    endif()
    string(LENGTH "${begin}" length)
    math(EXPR position "${position} + ${length}")
    string(SUBSTRING "${text}" 0 ${position} before)
    string(SUBSTRING "${text}" ${position} -1 code)
    string(FIND "${code}" "```" end)
    string(SUBSTRING "${code}" 0 ${end} code)

    string(REGEX REPLACE "[^\n]" "" before "${before}")
    string(LENGTH "${before}" line)
    math(EXPR line "${line} + 1")
    set(file ${CMAKE_CURRENT_BINARY_DIR}/readme/${name}.cpp)
    # Written only when it changes.
    file(CONFIGURE OUTPUT ${file} CONTENT "#line ${line} \"README.md\"\n${code}" @ONLY)
    set(${source} ${file} PARENT_SCOPE)
endfunction()

readme_example(media_client media_client)
readme_example(media_session media_session)
readme_example(service service)
target_sources(ReadmeExamplesTest PRIVATE ${media_client} ${media_session} ${service})
