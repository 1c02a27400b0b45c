#pragma once

#include <KVXCollaboration/KVXCWFileService.h>

/// File transfers by the process's transport. Keeps nothing between calls.
class KVXCWFileServiceImpl : public KVXCWFileService {
public:
    bool download(const QString &url, const QString &serverFileName, const QString &localFileName,
        KVXCWFileServiceProgress *progress) override;
    bool download(
        const QString &projectName, const QString &guid, const QString &localFileName) override;
    /// Does not ask whether a server is configured.
    bool download(const QString &serverFileName, const QString &localFileName,
        KVXCWFileServiceProgress *progress) override;
    /// Does not ask whether a server is configured. The caller sees the added keys.
    bool upload(const QString &ignored, const QString &localFileName, const QString &serverFileName,
        QJsonObject &request, const bool withMd5, KVXCWFileServiceProgress *progress) override;
    bool upload(const QString &projectName, const QString &guid, const QString &projectFileName,
        const QMap<QString, QVariant> &extra) override;
    bool upload(const QString &localFileName, const QString &serverFileName,
        KVXCWFileServiceProgress *progress) override;
    bool hasUpload(
        const QString &localFileName, const QString &serverFileName, bool withMd5) override;
    ~KVXCWFileServiceImpl() override;
};
