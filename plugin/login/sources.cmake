target_sources(kvx_plugin_objects PRIVATE
    login/ComputerName.cpp
    login/KVXCWLoginImpl.cpp
)
