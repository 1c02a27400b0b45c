#pragma once

#include <KVXExport.h>
#include <QJsonObject>
#include <QMap>
#include <QString>
#include <QVariant>

class KVXCWFileServiceProgress;

/// Whole files between client and server. Any thread; every operation blocks until the transfer
/// is over. The order of the virtual operations, the destructor last, is binding.
class KVXCOLLABORATION_API KVXCWFileService {
public:
    /// From the server named by url; project file of a GUID; from the configured server.
    KVX_OVERLOADS3(virtual bool download(const QString &url, const QString &serverFileName,
                       const QString &localFileName, KVXCWFileServiceProgress *progress)
        = 0,
        virtual bool download(
            const QString &projectName, const QString &guid, const QString &localFileName)
        = 0,
        virtual bool download(const QString &serverFileName, const QString &localFileName,
            KVXCWFileServiceProgress *progress)
        = 0)
    /// Any file with the caller's request keys, to which the operation adds its own; project file
    /// of a GUID, extra keys replacing the operation's; any file, raw.
    KVX_OVERLOADS3(virtual bool upload(const QString &ignored, const QString &localFileName,
                       const QString &serverFileName, QJsonObject &request, const bool withMd5,
                       KVXCWFileServiceProgress *progress)
        = 0,
        virtual bool upload(const QString &projectName, const QString &guid,
            const QString &projectFileName, const QMap<QString, QVariant> &extra)
        = 0,
        virtual bool upload(const QString &localFileName, const QString &serverFileName,
            KVXCWFileServiceProgress *progress)
        = 0)
    /// True when the server has a file of that name (withMd5: and of the local file's content).
    virtual bool hasUpload(
        const QString &localFileName, const QString &serverFileName, bool withMd5)
        = 0;
    virtual ~KVXCWFileService() = default;

    /// 32 lower-case hexadecimal digits; empty when the file cannot be read.
    static QString md5(const QString &fileName);
};
