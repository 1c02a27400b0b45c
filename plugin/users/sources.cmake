target_sources(kvx_plugin_objects PRIVATE
    users/KVXCWUserImpl.cpp
)
