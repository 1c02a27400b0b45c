#pragma once

/// Export attributes of the host's libraries and the portable order of overloads.
/// Each library defines its own KVX…_LIBRARY while it is built.

#if defined(_WIN32)
#define KVX_DECL_EXPORT __declspec(dllexport)
#define KVX_DECL_IMPORT __declspec(dllimport)
#else
#define KVX_DECL_EXPORT __attribute__((visibility("default")))
#define KVX_DECL_IMPORT __attribute__((visibility("default")))
#endif

#if defined(KVXCOLLABORATION_LIBRARY)
#define KVXCOLLABORATION_API KVX_DECL_EXPORT
#else
#define KVXCOLLABORATION_API KVX_DECL_IMPORT
#endif

#if defined(KVXNETWORK_LIBRARY)
#define KVXNETWORK_API KVX_DECL_EXPORT
#else
#define KVXNETWORK_API KVX_DECL_IMPORT
#endif

#if defined(KVXCOMMON_LIBRARY)
#define KVXCOMMON_API KVX_DECL_EXPORT
#else
#define KVXCOMMON_API KVX_DECL_IMPORT
#endif

#if defined(KVXSQLITE_LIBRARY)
#define KVXSQLITE_API KVX_DECL_EXPORT
#else
#define KVXSQLITE_API KVX_DECL_IMPORT
#endif

#if defined(KVXOCRSDK_LIBRARY)
#define KVXOCRSDK_API KVX_DECL_EXPORT
#else
#define KVXOCRSDK_API KVX_DECL_IMPORT
#endif

/// A run of virtual overloads of one name. The Itanium ABI lays them out as declared, MSVC in
/// reverse; written through these macros the slots follow the written order on both.
#if defined(_MSC_VER)
#define KVX_OVERLOADS2(first, second)                                                              \
    second;                                                                                        \
    first;
#define KVX_OVERLOADS3(first, second, third)                                                       \
    third;                                                                                         \
    second;                                                                                        \
    first;
#else
#define KVX_OVERLOADS2(first, second)                                                              \
    first;                                                                                         \
    second;
#define KVX_OVERLOADS3(first, second, third)                                                       \
    first;                                                                                         \
    second;                                                                                        \
    third;
#endif
