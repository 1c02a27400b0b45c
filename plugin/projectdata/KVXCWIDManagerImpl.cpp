#include "projectdata/KVXCWIDManagerImpl.h"

#include "frame/Log.h"
#include "frame/ServiceRequest.h"
#include "frame/ThrownBy.h"
#include "login/CurrentUser.h"
#include "messaging/BlockingReceivers.h"

#include <FailPoint.h>
#include <KVXCollaboration/IKVXProjectDatabase.h>
#include <KVXCollaboration/KVXCWMessage.h>
#include <KVXCollaboration/KVXCWProjectData.h>
#include <KVXCollaboration/KVXCWProjectList.h>
#include <KVXCollaboration/KVXCollaborator.h>
#include <KVXCollaboration/KVXProjectInfo.h>
#include <KVXSQLite/IKVXSQLiteModel.h>
#include <QPointer>
#include <QStringList>
#include <algorithm>
#include <exception>
#include <limits>

namespace {

// Kept as is: a server may answer a request for a new block with one that is of no use; it is asked
// again, but not for ever.
constexpr int MostBlockRequests = 100;

/// Each number is followed by ";".
QString idText(const QList<int> &ids)
{
    QString text;
    text.reserve(ids.size() * 8);
    for (const int id : ids) {
        text += QString::number(id);
        text += QLatin1Char(';');
    }
    return text;
}

QList<int> ascending(const QSet<int> &ids)
{
    QList<int> list = ids.values();
    std::sort(list.begin(), list.end());
    return list;
}

/// False: the value is no item number.
bool readItemNumber(const QJsonValue &value, int &number)
{
    number = kvx::toInt(value);
    return value.isDouble() && value.toDouble() >= 0
        && value.toDouble() <= std::numeric_limits<int>::max();
}

} // namespace

KVXCWIDManagerImpl::KVXCWIDManagerImpl()
{
    kvx::addBlockingReceiver(this);
    if (KVXCWMessage *messager = KVXCollaborator::getInstance()->messager())
        connect(messager, &KVXCWMessage::notify, this, &KVXCWIDManagerImpl::onNotify,
            Qt::BlockingQueuedConnection);
}

KVXCWIDManagerImpl::~KVXCWIDManagerImpl()
{
    kvx::removeBlockingReceiver(this);
}

void KVXCWIDManagerImpl::setProjectGuid(const QString &guid)
{
    m_projectGuid = guid;
}

QString KVXCWIDManagerImpl::projectGuid() const
{
    return m_projectGuid;
}

void KVXCWIDManagerImpl::setProjectDatabase(IKVXProjectDatabase *database)
{
    m_projectDatabase = database;
}

bool KVXCWIDManagerImpl::attachDatabase(IKVXProjectDatabase *database)
{
    m_projectDatabase = database;
    ensureRange();
    if (!m_numbers.isPositioned())
        scanDatabase(database);
    return m_numbers.hasRange() && m_numbers.isPositioned();
}

int KVXCWIDManagerImpl::newItemId(IKVXProjectDatabase *database)
{
    const std::lock_guard<std::mutex> oneAtATime(m_newItemIdMutex);
    for (;;) {
        ensureRange();
        if (m_numbers.needsScan()) {
            scanDatabase(database);
            m_numbers.markScanned();
        }
        const int id = m_numbers.take();
        if (id != -1)
            return id;
        // Kept as is: without any block both places are -1, so a new block is asked for as well.
        if (!m_numbers.isUsedUp() || !startNewBlock())
            return -1;
    }
}

bool KVXCWIDManagerImpl::checkOut(int moduleType, const QList<int> &ids)
{
    const QPointer<KVXCWIDManagerImpl> self(this);
    // Kept as is: the outcome of the synchronisation does not matter, only that there was one.
    if (syncProjectLogs() == 0 || !self)
        return false;
    return requestCheckOut(moduleType, ids, true);
}

bool KVXCWIDManagerImpl::checkOut(int moduleType, int id, KVXItemCheckState &state)
{
    const QPointer<KVXCWIDManagerImpl> self(this);
    if (syncProjectLogs() == 0 || !self)
        return false;
    std::optional<CheckStates> states;
    if (requestCheckOut(moduleType, { id }, true, &states))
        return true;
    if (states)
        state = states->value(id);
    return false;
}

bool KVXCWIDManagerImpl::checkIn(int moduleType, const QList<int> &ids)
{
    const QPointer<KVXCWIDManagerImpl> self(this);
    if (syncProjectLogs() == 0 || !self)
        return false;
    const ServiceReply reply = ServiceRequest("checkin")
                                   .set("ProjectGUID", m_projectGuid)
                                   .set("Email", kvx::currentUserEmail())
                                   .set("ModuleType", moduleType)
                                   .set("IDs", idText(ids))
                                   .post();
    if (!reply.ok() || !self)
        return false;
    // Kept as is: the user stays recorded as the last holder.
    const KVXItemCheckState free { KVXItemCheckState::CheckedIn, kvx::currentUserEmail(),
        kvx::currentUserName() };
    CheckStates &states = m_checkStates[moduleType];
    for (const int id : ids)
        states.insert(id, free);
    emit changed();
    return true;
}

bool KVXCWIDManagerImpl::checkIn(int moduleType, int id)
{
    return checkIn(moduleType, QList<int> { id });
}

int KVXCWIDManagerImpl::checkState(int moduleType, int id, KVXItemCheckState &holder)
{
    if (!m_checkStates.contains(moduleType)) {
        const QPointer<KVXCWIDManagerImpl> self(this);
        m_checkStates.insert(moduleType, {});
        requestCheckOut(moduleType, {}, false);
        if (!self)
            return KVXItemCheckState::CheckedIn;
    }
    const CheckStates &states = m_checkStates[moduleType];
    const auto known = states.constFind(id);
    if (known != states.constEnd()) {
        holder = *known;
        return known->state;
    }
    if (!m_numbers.wasHandedOut(id))
        return KVXItemCheckState::CheckedIn;
    // The user's own creation: his until the save that publishes it checks it out.
    ensureRange();
    m_numbers.addNewItems(moduleType, { id });
    return KVXItemCheckState::CheckedOutByMe;
}

int KVXCWIDManagerImpl::ensureCheckedOut(int moduleType, int id, bool checkOut)
{
    const QPointer<KVXCWIDManagerImpl> self(this);
    KVXItemCheckState holder;
    const int state = checkState(moduleType, id, holder);
    if (!self || !checkOut || state == KVXItemCheckState::CheckedOutByMe)
        return state;
    this->checkOut(moduleType, id, holder);
    return self ? checkState(moduleType, id, holder) : state;
}

bool KVXCWIDManagerImpl::checkInAll()
{
    const QPointer<KVXCWIDManagerImpl> self(this);
    const ServiceReply reply = ServiceRequest("checkinall")
                                   .set("ProjectGUID", m_projectGuid)
                                   .set("Email", kvx::currentUserEmail())
                                   .post();
    if (self)
        syncCheckOutStates();
    return reply.ok();
}

bool KVXCWIDManagerImpl::syncCheckOutStates()
{
    const QPointer<KVXCWIDManagerImpl> self(this);
    const QList<int> moduleTypes = m_checkStates.keys();
    bool complete = true;
    std::exception_ptr thrown; // by a receiver; the other modules are read all the same
    for (const int moduleType : moduleTypes) {
        try {
            complete = requestCheckOut(moduleType, {}, false);
        } catch (...) {
            thrown = std::current_exception();
        }
        if (!complete || !self)
            break;
    }
    if (thrown)
        std::rethrow_exception(thrown);
    return complete && self;
}

int KVXCWIDManagerImpl::itemState(int moduleType, int id) const
{
    const auto states = m_checkStates.constFind(moduleType);
    return states == m_checkStates.constEnd() ? KVXItemCheckState::CheckedIn
                                              : states->value(id).state;
}

bool KVXCWIDManagerImpl::registerCreatedItems(int moduleType, const QList<int> &ids)
{
    if (ids.isEmpty())
        return true;
    m_numbers.addHandedOut(ids);
    ensureRange(); // Kept as is: asks once a call, not once an item.
    m_numbers.addNewItems(moduleType, ids);
    return true;
}

void KVXCWIDManagerImpl::rescan()
{
    scanDatabase(m_projectDatabase);
}

bool KVXCWIDManagerImpl::checkOutNewItems()
{
    const QPointer<KVXCWIDManagerImpl> self(this);
    // Kept as is: what is created while the requests run belongs to the next save.
    const QMap<int, QSet<int>> items = m_numbers.newItems();
    const QSet<int> handedOut = m_numbers.handedOut();

    QList<int> moduleTypes;
    for (auto it = items.cbegin(); it != items.cend(); ++it) {
        if (!it->isEmpty())
            moduleTypes.append(it.key());
    }
    // Kept as is: without new items the first module is sent with an empty list, which tells the
    // other users that the save is over.
    if (moduleTypes.isEmpty() && !items.isEmpty())
        moduleTypes.append(items.firstKey());

    for (int i = 0; i < moduleTypes.size(); ++i) {
        const int moduleType = moduleTypes.at(i);
        const QSet<int> ids = items.value(moduleType);
        // Kept as is: a refusal is not reported, and the items are not tried again.
        requestCheckOut(moduleType, ascending(ids), i == moduleTypes.size() - 1);
        if (!self)
            return true;
        m_numbers.forgetNewItems(moduleType, ids);
    }
    m_numbers.forgetHandedOut(handedOut);
    return true;
}

bool KVXCWIDManagerImpl::copyCheckState(
    const QString &oldProjectGuid, const QString &newProjectGuid)
{
    return ServiceRequest("copycheckstate")
        .set("oldProjectGuid", oldProjectGuid)
        .set("newProjectGuid", newProjectGuid)
        .post()
        .ok();
}

void KVXCWIDManagerImpl::onNotify(const QJsonObject &message)
{
    KVXCWProjectList *projects = KVXCollaborator::getInstance()->projectListManager();
    const KVXProjectInfo *project
        = projects ? projects->getProjectInfoByGUID(m_projectGuid) : nullptr;
    if (!project)
        return;
    const QString guid = project->guid();
    if (message.value(QLatin1String("notifymsg_type")).toString()
        != QLatin1String("notifymsg_checkout"))
        return;
    if (message.value(QLatin1String("notifymsg_from")).toString() == kvx::currentUserEmail())
        return; // his own changes are here already
    const QJsonObject content = message.value(QLatin1String("notifymsg_content")).toObject();
    if (content.value(QLatin1String("ProjectGUID")).toString() != guid)
        return;

    KVX_INFO("Synchronize project data: projectGuid=%1", guid);
    const QPointer<KVXCWIDManagerImpl> self(this);
    const QPointer<KVXCWProjectData> synchronizer(
        KVXCollaborator::getInstance()->projectDataSynchronizer(guid));
    int code = 0;
    auto failure = kvx::thrownBy([&] { code = synchronizer ? synchronizer->syncLogs() : 0; });
    if (failure)
        KVX_ERROR("Deal checkout message failed: exception=%1", *failure);
    else if (code == KVXCWProjectData::Success)
        KVX_INFO("Synchronize project logs successed: projectGuid=%1", guid);
    else
        KVX_WARN("Synchronize project logs failed: errorCode=%1, projectGuid=%2", code, guid);
    if (!self || !synchronizer)
        return; // the project was closed meanwhile

    // Kept as is: the second pass; a pass that found nothing new leaves the states to us.
    failure = kvx::thrownBy([&] { synchronizer->syncLogs(); });
    if (failure)
        KVX_ERROR("Deal checkout message failed: exception=%1", *failure);
    if (!self || !synchronizer || synchronizer->isSynced())
        return;
    bool statesRead = false;
    failure = kvx::thrownBy([&] { statesRead = syncCheckOutStates(); });
    if (failure)
        KVX_ERROR("Deal checkout message failed: exception=%1", *failure);
    else if (statesRead)
        KVX_INFO("Synchronize project checkout states successed.");
    else
        KVX_WARN("Synchronize project checkout states failed.");
}

/// The synchroniser's result code; 0 without a synchroniser.
int KVXCWIDManagerImpl::syncProjectLogs()
{
    KVXCWProjectData *synchronizer
        = KVXCollaborator::getInstance()->projectDataSynchronizer(m_projectGuid);
    return synchronizer ? synchronizer->syncLogs() : 0;
}

/// Whatever the status, the picture takes over what the reply tells about holders. `states`
/// receives the module's whole picture, and nothing when no reply came. The manager may be gone on
/// return.
bool KVXCWIDManagerImpl::requestCheckOut(
    int moduleType, const QList<int> &ids, bool notifyOther, std::optional<CheckStates> *states)
{
    const QPointer<KVXCWIDManagerImpl> self(this);
    const ServiceReply reply = ServiceRequest("checkout")
                                   .set("ProjectGUID", m_projectGuid)
                                   .set("Email", kvx::currentUserEmail())
                                   .set("ModuleType", moduleType)
                                   .set("NotifyOther", notifyOther)
                                   .set("IDs", idText(ids))
                                   .post();
    if (!reply.carried() || !self || KVX_FAIL_POINT("check-out/answered"))
        return false;
    CheckStates &module = m_checkStates[moduleType];
    enterCheckStates(module, reply["CheckoutInfo"].toArray());
    if (states)
        *states = module;
    emit changed();
    return reply.ok();
}

void KVXCWIDManagerImpl::enterCheckStates(CheckStates &states, const QJsonArray &infos) const
{
    const QString ownEmail = kvx::currentUserEmail();
    for (const QJsonValue &value : infos) {
        const QJsonObject info = value.toObject();
        int id = -1;
        if (!readItemNumber(info.value(QLatin1String("ID")), id))
            continue; // Kept as is: an entry of no item says nothing about one.
        KVXItemCheckState state;
        state.email = info.value(QLatin1String("Email")).toString();
        state.name = info.value(QLatin1String("Name")).toString();
        if (kvx::toInt(info.value(QLatin1String("State"))) == 0)
            state.state = KVXItemCheckState::CheckedIn;
        else if (state.email.compare(ownEmail, Qt::CaseInsensitive) != 0)
            state.state = KVXItemCheckState::CheckedOutByOther;
        else
            state.state = KVXItemCheckState::CheckedOutByMe;
        states.insert(id, state);
    }
}

/// False: refused, or the answer is no block of numbers.
bool KVXCWIDManagerImpl::requestRange(bool newRange, ItemNumberRange &range) const
{
    const ServiceReply reply = ServiceRequest("allocateidrange")
                                   .set("ProjectGUID", m_projectGuid)
                                   .set("Email", kvx::currentUserEmail())
                                   .set("NewRange", newRange)
                                   .post();
    return reply.ok() && readItemNumber(reply["MinID"], range.min)
        && readItemNumber(reply["MaxID"], range.max) && range.isValid();
}

void KVXCWIDManagerImpl::ensureRange()
{
    ItemNumberRange range;
    if (!m_numbers.hasRange() && requestRange(false, range))
        m_numbers.setRange(range);
}

/// Asks until a block lies above all numbers in use. A server that repeats itself has none.
bool KVXCWIDManagerImpl::startNewBlock()
{
    ItemNumberRange last = m_numbers.range();
    for (int requests = 0; requests < MostBlockRequests; ++requests) {
        ItemNumberRange block;
        if (!requestRange(true, block) || block == last)
            return false;
        if (block.min > m_numbers.highestUsed()) {
            m_numbers.startBlock(block);
            return true;
        }
        last = block;
    }
    return false;
}

void KVXCWIDManagerImpl::scanDatabase(IKVXProjectDatabase *database)
{
    const ItemNumberRange range = m_numbers.range();
    IKVXSQLiteModel *model = database ? database->model() : nullptr;
    if (!range.isValid() || !model)
        return;
    int highest = -1;
    const QStringList tables = model->tables();
    for (const QString &table : tables) {
        if (table.compare(QLatin1String("sqlite_sequence"), Qt::CaseInsensitive) == 0)
            continue;
        const int id = model->highestId(table, range.min, range.max);
        if (range.contains(id))
            highest = std::max(highest, id);
    }
    m_numbers.continueAfter(range, highest);
}
