#pragma once

#include <QByteArray>
#include <QStringList>
#include <list>
#include <thread>
#include <vector>

namespace kvx::bench {

/// The least that a server can do with a request, as a floor for the real one: a thread a
/// connection, no parsing beyond the head. What is posted to "/store" is written to a new
/// file, which is synced with its name; anything else is thrown away. The answer is one small JSON
/// object, or an offered file.
class Sink {
public:
    /// Listens on a free port of this machine. Throws std::runtime_error.
    explicit Sink(const QString &folder);
    ~Sink();
    Sink(const Sink &) = delete;
    Sink &operator=(const Sink &) = delete;

    /// "127.0.0.1:port".
    QString address() const;
    /// "POST /file/<n>" is answered with the n-th of these. Before the first request.
    void offer(const QStringList &files) { m_files = files; }

private:
    void accept();
    void serve(int connection);
    QByteArray fileReply(int number) const;

    QString m_folder;
    QStringList m_files;
    int m_listener = -1;
    int m_port = 0;
    std::thread m_acceptor;
    std::vector<int> m_connections; // touched by the acceptor alone until it has ended
    std::list<std::thread> m_threads;
};

} // namespace kvx::bench
