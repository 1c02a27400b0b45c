#pragma once

#include <KVXCollaboration/KVXItemCheckState.h>
#include <KVXExport.h>
#include <QList>
#include <QObject>
#include <QString>

class IKVXProjectDatabase;

/// Check-out of items and item numbers of one opened project. Host thread. The order of the virtual
/// operations is binding.
class KVXCOLLABORATION_API KVXCWIDManager : public QObject {
    Q_OBJECT
public:
    ~KVXCWIDManager() override = default;

    virtual void setProjectGuid(const QString &guid) = 0;
    /// Makes sure that a range of numbers is held and where it continues.
    virtual bool attachDatabase(IKVXProjectDatabase *database) = 0;
    /// The next free number of the user's range; -1 when none is to be had. May look into the
    /// database and ask the server.
    virtual int newItemId(IKVXProjectDatabase *database) = 0;
    /// All items or none. Synchronises the project first. In the second form a refusal hands back
    /// who holds the item; without an answer of the server `state` stays as it is.
    KVX_OVERLOADS2(virtual bool checkOut(int moduleType, const QList<int> &ids) = 0,
        virtual bool checkOut(int moduleType, int id, KVXItemCheckState &state) = 0)
    KVX_OVERLOADS2(virtual bool checkIn(int moduleType, const QList<int> &ids) = 0,
        virtual bool checkIn(int moduleType, int id) = 0)
    /// A KVXItemCheckState::State, asking the server where the module is not known yet.
    virtual int checkState(int moduleType, int id, KVXItemCheckState &holder) = 0;
    /// The state after an attempt to check the item out where checkOut is set.
    virtual int ensureCheckedOut(int moduleType, int id, bool checkOut) = 0;
    /// Checks in all items of the current user.
    virtual bool checkInAll() = 0;
    /// Reads the picture of every known module anew.
    virtual bool syncCheckOutStates() = 0;
    /// The locally known state.
    virtual int itemState(int moduleType, int id) const = 0;
    /// Enters items whose numbers the user got other than by newItemId.
    virtual bool registerCreatedItems(int moduleType, const QList<int> &ids) = 0;
    /// Looks for the highest number in use in the database of setProjectDatabase.
    virtual void rescan() = 0;
    /// Borrowed; null detaches.
    virtual void setProjectDatabase(IKVXProjectDatabase *database) = 0;
    virtual QString projectGuid() const = 0;

Q_SIGNALS:
    void changed();
};
