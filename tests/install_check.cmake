# Installs the build into a staging directory and checks that it holds exactly the
# tool and its manual page. Run with -DBUILD_DIR=... -DSTAGE=...
file(REMOVE_RECURSE "${STAGE}")
execute_process(
    COMMAND ${CMAKE_COMMAND} -E env DESTDIR=${STAGE} ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix /opt/quillkit
    RESULT_VARIABLE status OUTPUT_QUIET)
if(NOT status EQUAL 0)
    message(FATAL_ERROR "install failed: ${status}")
endif()
file(GLOB_RECURSE installed RELATIVE "${STAGE}" "${STAGE}/*")
list(SORT installed)
set(expected "opt/quillkit/bin/quillard;opt/quillkit/share/man/man1/quillard.1")
if(NOT installed STREQUAL expected)
    message(FATAL_ERROR "installed: ${installed}\nexpected: ${expected}")
endif()
file(REMOVE_RECURSE "${STAGE}")
