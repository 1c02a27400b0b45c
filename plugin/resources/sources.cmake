target_sources(kvx_plugin_objects PRIVATE
    resources/KVXCWFileServiceImpl.cpp
    resources/KVXCWOCRImpl.cpp
    resources/KVXGlobalLockMgrImpl.cpp
    resources/KVXReportTemplateMgrImpl.cpp
)
