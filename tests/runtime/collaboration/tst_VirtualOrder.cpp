#include <KVXCollaboration/IKVXCWProjectAdditionalInfo.h>
#include <KVXCollaboration/IKVXProjectDatabase.h>
#include <KVXCollaboration/KVXCWCommon.h>
#include <KVXCollaboration/KVXCWFileService.h>
#include <KVXCollaboration/KVXCWFileServiceProgress.h>
#include <KVXCollaboration/KVXCWIDManager.h>
#include <KVXCollaboration/KVXCWLogin.h>
#include <KVXCollaboration/KVXCWMessage.h>
#include <KVXCollaboration/KVXCWOCR.h>
#include <KVXCollaboration/KVXCWProjectData.h>
#include <KVXCollaboration/KVXCWProjectList.h>
#include <KVXCollaboration/KVXCWProjectPermission.h>
#include <KVXCollaboration/KVXCWUser.h>
#include <KVXCollaboration/KVXGlobalLockMgr.h>
#include <KVXCollaboration/KVXReportTemplateMgr.h>
#include <KVXCommon/IKVXSimpleTable.h>
#include <KVXNetwork/KVXNetwork.h>
#include <KVXOCRSDK/KVXOCRClient.h>
#include <KVXSQLite/IKVXSQLiteModel.h>
#include <KVXSQLite/IKVXSQLiteModelCommandFile.h>

#include <cstring>
#include <gtest/gtest.h>
#include <vector>

// Plug-in and host are built apart: the position of an operation in the virtual table is the
// contract, and a declaration that is moved changes it without any compiler noticing.

namespace {

// The position that a pointer to a virtual member function holds in the Itanium ABI; -1 when the
// function is not virtual.
template <class Member> int slotOf(Member member)
{
    static_assert(sizeof(member) == 2 * sizeof(std::ptrdiff_t));
    std::ptrdiff_t parts[2];
    std::memcpy(parts, &member, sizeof(parts));
#if defined(__arm__) || defined(__aarch64__)
    const bool isVirtual = parts[1] & 1;
    const std::ptrdiff_t offset = parts[0];
#else
    const bool isVirtual = parts[0] & 1;
    const std::ptrdiff_t offset = parts[0] - 1;
#endif
    return isVirtual ? static_cast<int>(offset / static_cast<std::ptrdiff_t>(sizeof(void *))) : -1;
}

// Its probe stands behind everything that the interface declares.
template <class Interface> class Probe : public Interface {
public:
    virtual void probe() { }

    static void checkObjectPart()
    {
        EXPECT_EQ(slotOf(&Probe::metaObject), 0);
        EXPECT_EQ(slotOf(&Probe::qt_metacast), 1);
        EXPECT_EQ(slotOf(&Probe::qt_metacall), 2);
        // 3 and 4: the destructors
        EXPECT_EQ(slotOf(&Probe::event), 5);
        EXPECT_EQ(slotOf(&Probe::eventFilter), 6);
        EXPECT_EQ(slotOf(&Probe::timerEvent), 7);
        EXPECT_EQ(slotOf(&Probe::childEvent), 8);
        EXPECT_EQ(slotOf(&Probe::customEvent), 9);
        EXPECT_EQ(slotOf(&Probe::connectNotify), 10);
        EXPECT_EQ(slotOf(&Probe::disconnectNotify), 11);
    }
};

void checkSlots(const std::vector<int> &positions, int first, int end)
{
    for (std::size_t index = 0; index < positions.size(); ++index)
        EXPECT_EQ(positions[index], first + static_cast<int>(index)) << "operation " << index + 1;
    EXPECT_EQ(static_cast<int>(positions.size()), end - first) << "operations that no list names";
}

// Operations of a QObject interface stand behind the twelve of QObject.
template <class Interface> void checkObjectInterface(const std::vector<int> &positions)
{
    Probe<Interface>::checkObjectPart();
    checkSlots(positions, 12, slotOf(&Probe<Interface>::probe));
}

// Operations of a plain interface stand behind its destructor, which takes two positions.
template <class Interface> void checkPlainInterface(const std::vector<int> &positions)
{
    checkSlots(positions, 2, slotOf(&Probe<Interface>::probe));
}

} // namespace

#define AT(operation) slotOf(&I::operation)

TEST(VirtualOrder, Login)
{
    using I = KVXCWLogin;
    const auto plain = static_cast<void (I::*)(const QString &, const QString &)>(&I::setServer);
    const auto withProxy = static_cast<void (I::*)(const QString &, const QString &, int,
        const QString &, int, const QString &, const QString &)>(&I::setServer);
    checkObjectInterface<I>({ AT(searchServer), AT(serverVersion), AT(ping), AT(setProxy),
        slotOf(plain), slotOf(withProxy), AT(login), AT(leftCount), AT(logout), AT(currentUser),
        AT(cancelSearch), AT(companyAccount), AT(serverLogin) });
}

TEST(VirtualOrder, Message)
{
    using I = KVXCWMessage;
    checkObjectInterface<I>({ AT(start), AT(stop), AT(errorString) });
}

TEST(VirtualOrder, ProjectList)
{
    using I = KVXCWProjectList;
    checkObjectInterface<I>({ AT(genProjectName), AT(newProject), AT(addendumProject),
        AT(removeProject), AT(updateProject), AT(renameProject), AT(existsProject), AT(openProject),
        AT(closeProject), AT(lockProject), AT(onlineEditors), AT(getProjectInfoByGUID),
        AT(getProjectInfo), AT(updateProjectAdditionalInfo), AT(syncProjectList), AT(clearProject),
        AT(genProjectNameEx), AT(newProjectGroup), AT(removeProjectGroup), AT(renameProjectGroup),
        AT(existsProjectGroup) });
}

TEST(VirtualOrder, ProjectPermission)
{
    using I = KVXCWProjectPermission;
    checkPlainInterface<I>({ AT(updatePermissions) });
}

TEST(VirtualOrder, ProjectData)
{
    using I = KVXCWProjectData;
    checkObjectInterface<I>({ AT(setProjectGuid), AT(setProjectDatabase), AT(projectGuid),
        AT(saveProject), AT(syncLogs) });
}

TEST(VirtualOrder, AdditionalInfo)
{
    using I = IKVXCWProjectAdditionalInfo;
    checkPlainInterface<I>({ AT(additionalInfo), AT(isReady) });
}

TEST(VirtualOrder, IdManager)
{
    using I = KVXCWIDManager;
    checkObjectInterface<I>({ AT(setProjectGuid), AT(attachDatabase), AT(newItemId),
        slotOf<bool (I::*)(int, const QList<int> &)>(&I::checkOut),
        slotOf<bool (I::*)(int, int, KVXItemCheckState &)>(&I::checkOut),
        slotOf<bool (I::*)(int, const QList<int> &)>(&I::checkIn),
        slotOf<bool (I::*)(int, int)>(&I::checkIn), AT(checkState), AT(ensureCheckedOut),
        AT(checkInAll), AT(syncCheckOutStates), AT(itemState), AT(registerCreatedItems), AT(rescan),
        AT(setProjectDatabase), AT(projectGuid) });
}

TEST(VirtualOrder, User)
{
    using I = KVXCWUser;
    checkObjectInterface<I>({ AT(updateRoles), AT(syncToLocal), AT(extraInfo), AT(keepAlive),
        AT(updateUserProductVersion) });
}

TEST(VirtualOrder, FileServiceWithItsDestructorLast)
{
    using I = KVXCWFileService;
    using Progress = KVXCWFileServiceProgress *;
    const std::vector<int> positions {
        slotOf<bool (I::*)(const QString &, const QString &, const QString &, Progress)>(
            &I::download),
        slotOf<bool (I::*)(const QString &, const QString &, const QString &)>(&I::download),
        slotOf<bool (I::*)(const QString &, const QString &, Progress)>(&I::download),
        slotOf<bool (I::*)(const QString &, const QString &, const QString &, QJsonObject &,
            const bool, Progress)>(&I::upload),
        slotOf<bool (I::*)(const QString &, const QString &, const QString &,
            const QMap<QString, QVariant> &)>(&I::upload),
        slotOf<bool (I::*)(const QString &, const QString &, Progress)>(&I::upload),
        AT(hasUpload),
    };
    const int destructors = 2;
    checkSlots(positions, 0, slotOf(&Probe<I>::probe) - destructors);
}

TEST(VirtualOrder, FileServiceProgress)
{
    using I = KVXCWFileServiceProgress;
    checkPlainInterface<I>({ AT(setProgress) });
}

TEST(VirtualOrder, ReportTemplates)
{
    using I = KVXReportTemplateMgr;
    checkObjectInterface<I>(
        { AT(uploadTemplate), AT(downloadTemplate), AT(queryTemplates), AT(deleteTemplates),
            AT(deleteTemplate), AT(renameTemplate), AT(templateExist), AT(templateExistByID) });
}

TEST(VirtualOrder, GlobalLocks)
{
    using I = KVXGlobalLockMgr;
    checkObjectInterface<I>({ AT(GlobalLock), AT(GlobalUnlock) });
}

TEST(VirtualOrder, Ocr)
{
    using I = KVXCWOCR;
    checkObjectInterface<I>({ AT(recognize), AT(stop) });
}

TEST(VirtualOrder, OcrClient)
{
    using I = KVXOCRClient;
    checkObjectInterface<I>({ AT(setUrl), AT(setWaitingInterval), AT(start), AT(stop) });
}

TEST(VirtualOrder, Common)
{
    using I = KVXCWCommon;
    checkObjectInterface<I>({ AT(updateTable), AT(getTable), AT(table), AT(tick),
        AT(resourceVersion), AT(downloadResource) });
}

TEST(VirtualOrder, SimpleTable)
{
    using I = IKVXSimpleTable;
    checkPlainInterface<I>({ AT(name), AT(toJson) });
}

TEST(VirtualOrder, ProjectDatabase)
{
    checkPlainInterface<IKVXProjectDatabase>({ slotOf(&IKVXProjectDatabase::model) });
    checkPlainInterface<IKVXSQLiteModelCommandFile>(
        { slotOf(&IKVXSQLiteModelCommandFile::loadFromFile) });
    using I = IKVXSQLiteModel;
    checkPlainInterface<I>({ AT(execute), AT(tables), AT(highestId) });
}

// The transport's operations are known by their number, the destructor being the first: on this
// ABI, where it takes two positions, number and position are the same.
TEST(VirtualOrder, Transport)
{
    using I = KVXNetwork;
    checkPlainInterface<I>({ AT(setProxy), AT(proxy), AT(httpGet), AT(httpPost), AT(setTimeouts),
        AT(clearSession), AT(hasSession), AT(abort), AT(lastError), AT(searchServer), AT(ping),
        AT(serverVersion), AT(cancelSearch), AT(post), AT(uploadFile), AT(downloadFile) });
    EXPECT_EQ(AT(httpGet), 4);
    EXPECT_EQ(AT(httpPost), 5);
    EXPECT_EQ(AT(searchServer), 11);
    EXPECT_EQ(AT(ping), 12);
    EXPECT_EQ(AT(serverVersion), 13);
    EXPECT_EQ(AT(cancelSearch), 14);
    EXPECT_EQ(AT(post), 15);
    EXPECT_EQ(AT(uploadFile), 16);
    EXPECT_EQ(AT(downloadFile), 17);
}
