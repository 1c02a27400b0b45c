#include "client/SaveContribution.h"

#include "KVXSQLite/KVXProjectDatabase.h"
#include "content/BillStore.h"

#include <QDir>
#include <QFile>
#include <QUuid>

namespace kvx::host {

SaveContribution::SaveContribution(KVXProjectDatabase &database, const QString &author)
    : m_database(database)
    , m_author(author)
    , m_logFile(QDir::tempPath() + QLatin1Char('/') + QUuid::createUuid().toString())
{
}

SaveContribution::~SaveContribution()
{
    QFile::remove(m_logFile);
}

void SaveContribution::additionalInfo(QMap<QString, QVariant> &info)
{
    // Without a log the upload fails, and with it the save; nothing is published.
    if (!m_database.prepareSave(m_logFile, m_author)) {
        m_error = m_database.errorText();
        return;
    }
    const content::BillStore bill(m_database.connection());
    info.insert(QStringLiteral("ProjectLogFile"), m_logFile);
    info.insert(QStringLiteral("ProjectFile"), m_database.path());
    info.insert(QStringLiteral("Amount"), content::formatCents(bill.totalInCents()));
    m_asked = true;
}

} // namespace kvx::host
