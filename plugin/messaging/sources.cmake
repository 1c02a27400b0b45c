target_sources(kvx_plugin_objects PRIVATE
    messaging/BlockingReceivers.cpp
    messaging/BrokerListener.cpp
    messaging/CallGate.cpp
    messaging/CmsLibrary.cpp
    messaging/KVXCWMessageImpl.cpp
    messaging/LinkCloser.cpp
    messaging/ModifiedUtf8.cpp
    messaging/Notifier.cpp
    messaging/TypeName.cpp
)
