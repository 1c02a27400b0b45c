# cmake --install: programs, libraries, the plug-in, the headers that a host is compiled against, the
# documents. The parts find each other wherever the whole is put. The broker installs itself.
foreach(library KVXCollaboration KVXCommon KVXNetwork KVXOCRSDK KVXSQLite KVXNetCollaboration)
    if(TARGET ${library})
        set_target_properties(${library} PROPERTIES INSTALL_RPATH "$ORIGIN")
        install(TARGETS ${library} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
    endif()
endforeach()
foreach(program kvx kvx-server)
    if(TARGET ${program})
        set_target_properties(${program} PROPERTIES INSTALL_RPATH "$ORIGIN/${kvx_bin_to_lib}")
        install(TARGETS ${program} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
    endif()
endforeach()
install(DIRECTORY ${PROJECT_SOURCE_DIR}/platform/
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kvx FILES_MATCHING PATTERN "*.h")
install(FILES README.md CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR})
