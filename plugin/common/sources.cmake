target_sources(kvx_plugin_objects PRIVATE
    common/KVXCWCommonImpl.cpp
)
