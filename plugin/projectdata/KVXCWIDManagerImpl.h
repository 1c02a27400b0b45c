#pragma once

#include "projectdata/ItemNumbers.h"

#include <KVXCollaboration/KVXCWIDManager.h>
#include <QHash>
#include <QJsonArray>
#include <QJsonObject>
#include <QMap>
#include <mutex>
#include <optional>

/// Check-out of items and item numbers of one project, kept on the server. The local picture only
/// follows what the server answers. Host thread. A receiver of changed() may close the project; the
/// operation under way then returns at once.
class KVXCWIDManagerImpl : public KVXCWIDManager {
    Q_OBJECT
public:
    /// Listens to the messager: its thread waits until a notification has been applied.
    KVXCWIDManagerImpl();
    ~KVXCWIDManagerImpl() override;

    void setProjectGuid(const QString &guid) override;
    bool attachDatabase(IKVXProjectDatabase *database) override;
    int newItemId(IKVXProjectDatabase *database) override;
    KVX_OVERLOADS2(bool checkOut(int moduleType, const QList<int> &ids) override,
        bool checkOut(int moduleType, int id, KVXItemCheckState &state) override)
    KVX_OVERLOADS2(bool checkIn(int moduleType, const QList<int> &ids) override,
        bool checkIn(int moduleType, int id) override)
    int checkState(int moduleType, int id, KVXItemCheckState &holder) override;
    int ensureCheckedOut(int moduleType, int id, bool checkOut) override;
    bool checkInAll() override;
    bool syncCheckOutStates() override;
    int itemState(int moduleType, int id) const override;
    bool registerCreatedItems(int moduleType, const QList<int> &ids) override;
    void rescan() override;
    void setProjectDatabase(IKVXProjectDatabase *database) override;
    QString projectGuid() const override;

    /// Checks out what the user created since the last save; called once a save is published.
    /// Always true: a refusal is not reported.
    bool checkOutNewItems();
    /// Has the server give the holders of one project's items the same items of another one.
    bool copyCheckState(const QString &oldProjectGuid, const QString &newProjectGuid);

public Q_SLOTS:
    /// Another user's check-out or save: fetches his changes and the check-out states.
    void onNotify(const QJsonObject &message);

private:
    using CheckStates = QHash<int, KVXItemCheckState>; // by item

    int syncProjectLogs();
    bool requestCheckOut(int moduleType, const QList<int> &ids, bool notifyOther,
        std::optional<CheckStates> *states = nullptr);
    void enterCheckStates(CheckStates &states, const QJsonArray &infos) const;
    bool requestRange(bool newRange, ItemNumberRange &range) const;
    void ensureRange();
    bool startNewBlock();
    void scanDatabase(IKVXProjectDatabase *database);

    QMap<int, CheckStates> m_checkStates; // by module type
    ItemNumbers m_numbers;
    std::mutex m_newItemIdMutex; // one newItemId at a time, its requests included
    QString m_projectGuid;
    IKVXProjectDatabase *m_projectDatabase = nullptr; // borrowed
};
