target_sources(kvx_plugin_objects PRIVATE
    projectdata/ItemNumbers.cpp
    projectdata/KVXCWIDManagerImpl.cpp
    projectdata/KVXCWProjectDataImpl.cpp
)
