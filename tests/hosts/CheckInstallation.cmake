function(run expected out)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE text
        ERROR_VARIABLE text INPUT_FILE /dev/null)
    if(NOT result STREQUAL expected)
        message(FATAL_ERROR "${ARGN}: ${result} instead of ${expected}\n${text}")
    endif()
    set(${out} "${text}" PARENT_SCOPE)
endfunction()

file(REMOVE_RECURSE ${PREFIX})
run(0 ignored ${CMAKE_COMMAND} --install ${BUILD} --prefix ${PREFIX})

foreach(program kvx kvx-server)
    run(0 text ${PREFIX}/${BIN}/${program} --version)
    if(NOT text MATCHES "^${program} ${VERSION}\n$")
        message(FATAL_ERROR "${program} --version says: ${text}")
    endif()
endforeach()

# Our libraries come from the installation, not from where they were built.
file(GLOB ours ${PREFIX}/${BIN}/kvx ${PREFIX}/${BIN}/kvx-server ${PREFIX}/${LIB}/libKVX*.so)
list(LENGTH ours count)
if(count LESS 7)
    message(FATAL_ERROR "Something is not installed: ${ours}")
endif()
foreach(file IN LISTS ours)
    run(0 text ldd ${file})
    string(REGEX MATCHALL "libKVX[^\n]*" lines "${text}")
    foreach(line IN LISTS lines)
        string(FIND "${line}" "=> ${PREFIX}/" at)
        if(at EQUAL -1)
            message(FATAL_ERROR "${file}: ${line}")
        endif()
    endforeach()
endforeach()

# The plug-in is found and loaded: what fails is the server that is not there.
file(WRITE ${PREFIX}/password "x\n")
run(3 text ${PREFIX}/${BIN}/kvx --server 127.0.0.1:1 --user a@example.com
    --password-file ${PREFIX}/password --home ${PREFIX}/home login)
if(NOT text MATCHES "127\\.0\\.0\\.1")
    message(FATAL_ERROR "kvx login says: ${text}")
endif()

run(2 text ${PREFIX}/${BIN}/kvx-broker)
if(NOT text MATCHES "--port is missing")
    message(FATAL_ERROR "kvx-broker says: ${text}")
endif()

foreach(file ${INCLUDE}/kvx/KVXCollaboration/KVXCWLogin.h ${INCLUDE}/kvx/KVXExport.h
        ${DOC}/README.md ${DOC}/docs/server.md)
    if(NOT EXISTS ${PREFIX}/${file})
        message(FATAL_ERROR "${file} is not installed")
    endif()
endforeach()
