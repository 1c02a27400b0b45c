#pragma once

#include <KVXCollaboration/IKVXCWProjectAdditionalInfo.h>
#include <QString>

class KVXProjectDatabase;

namespace kvx::host {

/// What this host adds to a save: the change log with the pending edits, the project file and the
/// total. The log is written when it is asked for, under the save lock.
class SaveContribution : public IKVXCWProjectAdditionalInfo {
public:
    SaveContribution(KVXProjectDatabase &database, const QString &author);
    ~SaveContribution() override;

    void additionalInfo(QMap<QString, QVariant> &info) override;
    bool isReady() override { return true; }

    /// The log was written and handed over.
    bool wasAsked() const { return m_asked; }
    /// Why it could not be written; empty otherwise.
    const QString &error() const { return m_error; }

private:
    KVXProjectDatabase &m_database;
    QString m_author;
    QString m_logFile;
    QString m_error;
    bool m_asked = false;
};

} // namespace kvx::host
