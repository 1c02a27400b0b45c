#pragma once

#include "Tender.h"
#include "Wire.h"
#include "client/Client.h"
#include "client/TemporaryFolder.h"
#include "demo/Site.h"

#include <QJsonObject>
#include <QTemporaryDir>
#include <chrono>
#include <memory>
#include <optional>

namespace kvx::bench {

/// Throws std::runtime_error with this text unless the condition holds.
void require(bool condition, const QString &otherwise);

/// What all workloads stand on: a real server with its broker, and one user who is logged in
/// through the plug-in in this process. Host thread.
class Stand {
public:
    /// Throws std::runtime_error when something does not start.
    /// Without guard the broker takes everybody, as it would without kvx-server beside it.
    explicit Stand(bool quick, bool guarded = true);
    ~Stand();

    demo::Site &site() { return m_site; }
    /// Port of a second broker, which has no guard: a floor needs neither server nor session.
    int bareBrokerPort();
    host::Client &client() { return *m_client; }
    const QString &email() const { return m_email; }
    QString password() const;
    /// A path in a folder that goes at the end.
    QString path(const QString &name) const { return m_folder.filePath(name); }

    /// How often a figure is taken; at least five unless it is to be quick.
    int repeats(int usual = 7) const { return m_quick ? 3 : usual; }
    bool isQuick() const { return m_quick; }

    /// One service request over the session of the plug-in; must succeed.
    QJsonObject service(const char *name, QJsonObject keys);
    /// A session of its own for the same user.
    std::unique_ptr<Wire> newSession();
    /// Makes a project of this size and uploads its base. The file stays at base.
    QString share(const QString &name, const TenderSize &size, QString *base);
    /// Makes a project with this file as its base.
    QString shareFile(const QString &name, const QString &guid, const QString &file);
    /// Makes as many empty projects as are missing.
    void haveProjects(int count);
    /// Publishes the next version of a project, as a save does, with this change log. Gives the
    /// moment at which the server had agreed to the merge.
    std::chrono::steady_clock::time_point publish(
        const QString &guid, int before, const QString &logFile, const QString &projectFile);

private:
    QTemporaryDir m_folder;
    bool m_quick;
    int m_projects = 0;
    QString m_email = QStringLiteral("bench@example.com");
    demo::Site m_site;
    std::unique_ptr<demo::Site> m_bare;
    std::optional<host::TemporaryFolder> m_temporary;
    std::unique_ptr<host::Client> m_client;
};

} // namespace kvx::bench
