target_sources(kvx_plugin_objects PRIVATE
    projectlist/KVXCWProjectListImpl.cpp
    projectlist/KVXCWProjectPermissionImpl.cpp
    projectlist/ListLock.cpp
    projectlist/ProjectListNotification.cpp
    projectlist/ProjectRecord.cpp
)
