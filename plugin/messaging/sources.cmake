target_sources(kvx_plugin_objects PRIVATE
    messaging/BlockingReceivers.cpp
)
