#pragma once

#include <QString>
#include <QTemporaryDir>

namespace kvx::test {

/// The fail points of one process, to be armed and disarmed while it runs.
class Armed {
public:
    Armed();

    /// What is started between these two is under this object's control.
    void beginStarts() const;
    static void endStarts();

    /// "name=action@n", see FailPoint.h. Counting begins anew.
    void arm(const QString &text);
    void disarm() { arm(QString()); }
    /// How often the line ("name" or "name=action") was noted since the last `arm`.
    int passed(const QString &line) const;
    bool waitFor(const QString &line) const;

private:
    QString path(const char *name) const { return m_folder.filePath(QLatin1String(name)); }

    QTemporaryDir m_folder;
    int m_armings = 0;
};

} // namespace kvx::test
