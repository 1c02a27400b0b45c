#pragma once

#include "Armed.h"
#include "invariants/History.h"
#include "team/SharedProject.h"

#include <QElapsedTimer>
#include <memory>

namespace kvx::test {

/// One server, one broker, two members in processes of their own, for all rows of a program; a
/// fresh project with one save for each row. Anna's process and the server have fail points that a
/// row arms. At its end everybody has saved and synchronised, and the judge is asked.
class Ring : public testing::Test {
protected:
    /// What the server has published.
    struct Published {
        int version = -2;
        QString file;
    };

    static void SetUpTestSuite();
    static void TearDownTestSuite();
    void SetUp() override;
    void TearDown() override;

    static host::ShellProcess &anna() { return s_ring->team->member(0); }
    static host::ShellProcess &ben() { return s_ring->team->member(1); }
    static const QString &email(int member) { return s_ring->team->email(member); }
    static Armed &client() { return s_ring->client; }
    static Armed &server() { return s_ring->server; }

    /// A command, with its begin and end in the history; empty when the process ended over it.
    QJsonObject ask(int member, const QString &command);
    void send(int member, const QString &command);
    QJsonObject answer(int member);

    /// Until it is in ben's list.
    void shareWithBen();
    bool edit(int member, int item, int rate);
    /// The save's result; an acknowledged one is noted.
    QJsonObject save(int member);
    void noteSaved(int member, const QJsonObject &result);
    int pending(int member);
    QString rate(int member, int item);
    Published published();

    /// Until everything that was done so far has been announced, and that was noted.
    void awaitAnnounced();

    /// Starts anna's process again, disarmed, and opens the project.
    void restartAnna();
    static bool startAnna(); ///< without the project
    /// The same for ben.
    bool restartBen();
    void killed(int member);
    /// After the server has ended by itself.
    void restartServer();
    /// Ends it in order or not; `meanwhile` runs while it is down.
    void restartServer(bool inOrder, const std::function<void()> &meanwhile);
    static QString dataFolder();

    /// Everybody saves what is pending and synchronises; both copies and the store agree.
    void converge();
    void judge();
    /// What they take, and where they wrote their complaints.
    void noteProcesses();
    /// No folder of temporary files is left of that process.
    static bool isSwept(qint64 pid);

    QString guid;

private:
    struct Shared {
        Armed client;
        Armed server;
        std::unique_ptr<Team> team;
    };
    static bool start(int member);
    static void tellWhatHappened();

    static std::unique_ptr<Shared> s_ring;
    std::unique_ptr<QTemporaryDir> m_folder;
    std::unique_ptr<History> m_history;
    QString m_call;
    QElapsedTimer m_timer;
};

} // namespace kvx::test
