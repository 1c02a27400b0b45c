# kvx_build: language level, warnings, hardening and sanitizers of everything that is ours.
set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_AUTOMOC_PATH_PREFIX ON)

# From an installed program to the libraries.
file(RELATIVE_PATH kvx_bin_to_lib /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})

set(kvx_warnings -Wall -Wextra -Wconversion $<$<BOOL:${KVX_WERROR}>:-Werror>)
set(kvx_hardening -fstack-protector-strong -fstack-clash-protection)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64|i.86")
    list(APPEND kvx_hardening $<$<NOT:$<CONFIG:Debug>>:-fcf-protection>)
endif()

add_library(kvx_build INTERFACE)
target_compile_options(kvx_build INTERFACE ${kvx_warnings} ${kvx_hardening})
target_compile_definitions(kvx_build INTERFACE _GLIBCXX_ASSERTIONS QT_NO_CAST_FROM_ASCII
    QT_NO_CAST_TO_ASCII QT_NO_FOREACH)
target_link_options(kvx_build INTERFACE -fuse-ld=lld -Wl,-z,relro,-z,now,-z,noexecstack)

if(KVX_SANITIZE STREQUAL "address")
    set(kvx_sanitizer -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
elseif(KVX_SANITIZE STREQUAL "thread")
    # The HTTP library's fences are known to be invisible to this sanitizer; nothing to warn of each time.
    set(kvx_sanitizer -fsanitize=thread -fno-omit-frame-pointer -Wno-tsan)
elseif(KVX_SANITIZE STREQUAL "fuzzer")
    set(kvx_sanitizer -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all
        -fno-omit-frame-pointer
        -fsanitize-ignorelist=${CMAKE_CURRENT_LIST_DIR}/fuzzer-ignored.txt)
elseif(KVX_SANITIZE)
    message(FATAL_ERROR "KVX_SANITIZE=${KVX_SANITIZE} is not known")
endif()
if(kvx_sanitizer)
    target_compile_options(kvx_build INTERFACE ${kvx_sanitizer})
    target_link_options(kvx_build INTERFACE ${kvx_sanitizer})
else()
    target_compile_definitions(kvx_build INTERFACE $<$<NOT:$<CONFIG:Debug>>:_FORTIFY_SOURCE=2>)
endif()

# What the thread sanitizer runs over: everything that has threads of its own.
add_custom_target(tsan_tests)
set(KVX_TSAN_TESTS "^tst_(openwire|messaging|network|server|common_services|common_log|ocr_bridge|projectlist_(commands|notifications)|projectdata_(checkout|itemnumbers)|users|resources)")

# kvx_add_test(<name> SOURCES … LIBRARIES … [QT] [TIMEOUT seconds] [LABELS …])
# One executable, one ctest entry. QT gives the test's main a QCoreApplication and runs moc.
function(kvx_add_test name)
    cmake_parse_arguments(arg "QT" "TIMEOUT" "SOURCES;LIBRARIES;LABELS" ${ARGN})
    add_executable(${name} ${arg_SOURCES})
    target_link_libraries(${name} PRIVATE kvx_build ${arg_LIBRARIES} GTest::gmock)
    if(arg_QT)
        set_target_properties(${name} PROPERTIES AUTOMOC ON)
        target_link_libraries(${name} PRIVATE kvx_test_main_qt)
    else()
        target_link_libraries(${name} PRIVATE kvx_test_main)
    endif()
    if(name MATCHES "${KVX_TSAN_TESTS}")
        add_dependencies(tsan_tests ${name})
    endif()
    add_test(NAME ${name} COMMAND ${name})
    if(NOT arg_TIMEOUT)
        set(arg_TIMEOUT 120)
    endif()
    # The longest begin first, so that no core is idle at the end.
    set_tests_properties(${name} PROPERTIES TIMEOUT ${arg_TIMEOUT} COST ${arg_TIMEOUT}
        LABELS "${arg_LABELS}")
endfunction()

# kvx_add_fuzzer(<name> SOURCES … LIBRARIES …): fuzz_<name>, with its seeds in tests/fuzz/<name>/corpus.
add_custom_target(fuzz_all)
function(kvx_add_fuzzer name)
    if(NOT KVX_SANITIZE STREQUAL "fuzzer")
        return()
    endif()
    cmake_parse_arguments(arg "" "" "SOURCES;LIBRARIES" ${ARGN})
    add_executable(fuzz_${name} ${arg_SOURCES})
    target_link_libraries(fuzz_${name} PRIVATE kvx_build ${arg_LIBRARIES})
    target_link_options(fuzz_${name} PRIVATE -fsanitize=fuzzer)
    set_target_properties(fuzz_${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/fuzzers)
    add_dependencies(fuzz_all fuzz_${name})
endfunction()
