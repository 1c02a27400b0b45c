#pragma once

#include "client/ShellProcess.h"
#include "demo/Site.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <QTextStream>

namespace kvx::demo {

/// What the product is for, told on one screen while it happens: two estimators share a tender, a
/// third looks in for a while. Nothing is said before it was checked.
class Story {
public:
    /// folder holds the sample tender, the report template and the scanned page.
    Story(Site &site, const QString &folder);

    /// False after the reason was said.
    bool tell();

private:
    void title(const QString &text);
    void step(const QString &who, const QString &text);
    bool fail(const QString &text);
    /// Runs a command that must succeed.
    bool must(host::ShellProcess &shell, const QString &command, QJsonObject *result = nullptr);
    /// A file of the demo as an argument of a command.
    QString fileArgument(const char *name) const;

    bool begin();
    bool work();
    bool savePushed();
    bool saveTogether();
    bool compare();

    // With Carla.
    bool lookIn();
    bool shareTemplate();
    bool readPage();
    bool recognise(const QString &table);
    bool pushItems(int items);
    bool lookOut();

    Site &m_site;
    QString m_folder;
    QTextStream m_out;
    QTemporaryDir m_scratch;
    host::ShellProcess m_anna;
    host::ShellProcess m_ben;
    host::ShellProcess m_office; ///< the administrator
    host::ShellProcess m_carla;
    QString m_project = QStringLiteral("\"School Nordring\"");
    QStringList m_items;
};

} // namespace kvx::demo
