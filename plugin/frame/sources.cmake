target_sources(kvx_plugin_objects PRIVATE
    frame/EntryPoints.cpp
)

# The plug-in itself.
add_library(KVXNetCollaboration SHARED $<TARGET_OBJECTS:kvx_plugin_objects>)
target_link_libraries(KVXNetCollaboration PRIVATE kvx_failpoint kvx_build KVXCollaboration KVXNetwork KVXCommon
    KVXSQLite KVXOCRSDK kvx_cms Qt5::Core log4cplus::log4cplus)
# The script keeps in what the broker client, a static library, would export. A broker thread may
# outlive the registry that unloads the plug-in, so its code stays in memory.
target_link_options(KVXNetCollaboration PRIVATE
    -Wl,--version-script=${CMAKE_CURRENT_SOURCE_DIR}/frame/exports.map -Wl,-z,nodelete
    $<$<NOT:$<BOOL:${KVX_SANITIZE}>>:-Wl,-z,defs>)
set_target_properties(KVXNetCollaboration PROPERTIES
    LINK_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/frame/exports.map)
