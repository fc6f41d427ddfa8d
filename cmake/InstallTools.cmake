# SPDX-License-Identifier: Apache-2.0
# cmake --install, the component `tools`: the programs with their manual pages and completions, the
# sample processing library, and the template and the page for makers of others.
set(tools dectl displayengine-service aisr-check)
set(purpose_dectl "ask and set the features of the display engine service")
set(purpose_displayengine-service "a display engine service for a desk machine")
set(purpose_aisr-check "check a processing library against the rules for its makers")

file(RELATIVE_PATH library_folder ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
set_target_properties(${tools} PROPERTIES INSTALL_RPATH $ORIGIN/${library_folder})
install(TARGETS ${tools} RUNTIME COMPONENT tools)
install(TARGETS aisr_process_sample
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/displayengine/sample COMPONENT tools)
install(FILES tools/template/aisr_template.c
    DESTINATION ${CMAKE_INSTALL_DATADIR}/displayengine/template COMPONENT tools)
install(FILES docs/processing-library.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT tools)

set(pages)
find_program(HELP2MAN help2man)
if(CMAKE_CROSSCOMPILING)
    message(STATUS "The manual pages are left out: the programs do not run on this machine")
elseif(NOT HELP2MAN)
    message(STATUS "The manual pages are left out: they take help2man")
endif()
foreach(tool ${tools})
    if(HELP2MAN AND NOT CMAKE_CROSSCOMPILING)
        set(page ${PROJECT_BINARY_DIR}/man/${tool}.1)
        add_custom_command(OUTPUT ${page}
            COMMAND ${HELP2MAN} --no-info --name=${purpose_${tool}} --output=${page}
                $<TARGET_FILE:${tool}>
            DEPENDS ${tool} VERBATIM)
        list(APPEND pages ${page})
    endif()
    if(EXISTS ${PROJECT_SOURCE_DIR}/tools/completion/${tool})
        install(FILES tools/completion/${tool}
            DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools)
    endif()
endforeach()
file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/man)
add_custom_target(manual_pages ALL DEPENDS ${pages})
install(FILES ${pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
