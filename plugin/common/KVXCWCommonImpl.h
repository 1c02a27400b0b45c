#pragma once

#include <KVXCollaboration/KVXCWCommon.h>
#include <QTime>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>

/// Shared tables, working time and the common resource package. Host thread, but for tick().
/// Tables are judged by the exchange alone, the package by "statuscode".
/// The meta-object is the interface's.
class KVXCWCommonImpl : public KVXCWCommon {
public:
    using Clock = std::function<QTime()>;

    /// The working time begins now. The clock is asked under a lock, by any thread.
    explicit KVXCWCommonImpl(Clock clock = &QTime::currentTime);
    ~KVXCWCommonImpl() override;

    /// The table may be one that this manager handed out.
    bool updateTable(IKVXSimpleTable *table) override;
    IKVXSimpleTable *getTable(const QString &name) override;
    IKVXSimpleTable *table(const QString &name) override;
    /// Any thread; does nothing while another tick is under way. Five minutes of work are reported
    /// within it, and the request blocks.
    void tick() override;
    /// version changes only on success.
    bool resourceVersion(const QString &host, int port, QString &version) override;
    int downloadResource(const QString &localFileName, const QString &host, int port) override;

private:
    void store(const QString &name, IKVXSimpleTable *table);
    void reportWorkingTime(int minutes) const;

    std::map<QString, std::unique_ptr<IKVXSimpleTable>> m_tables;
    const Clock m_clock;
    QTime m_lastTick; ///< under m_tickMutex
    std::int32_t m_pendingSeconds = 0; ///< under m_tickMutex
    std::mutex m_tickMutex; ///< only ever tried
};
