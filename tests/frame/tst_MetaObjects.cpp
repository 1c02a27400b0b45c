#include "common/KVXCWCommonImpl.h"
#include "login/KVXCWLoginImpl.h"
#include "messaging/KVXCWMessageImpl.h"
#include "projectdata/KVXCWIDManagerImpl.h"
#include "projectdata/KVXCWProjectDataImpl.h"
#include "projectlist/KVXCWProjectListImpl.h"
#include "resources/KVXCWOCRImpl.h"
#include "resources/KVXGlobalLockMgrImpl.h"
#include "resources/KVXReportTemplateMgrImpl.h"
#include "users/KVXCWUserImpl.h"

#include <QMetaMethod>
#include <gtest/gtest.h>

// Hosts look managers up by class name and connect by signature.

namespace {

QStringList ownMethods(const QMetaObject &type)
{
    QStringList methods;
    for (int i = type.methodOffset(); i < type.methodCount(); ++i)
        methods.append(QString::fromLatin1(type.method(i).methodSignature()));
    return methods;
}

void expectNothingElse(const QMetaObject &type)
{
    EXPECT_EQ(type.propertyCount(), type.propertyOffset());
    EXPECT_EQ(type.enumeratorCount(), type.enumeratorOffset());
    EXPECT_EQ(type.constructorCount(), 0);
}

} // namespace

TEST(MetaObjects, threeManagersHaveOneWithoutMembers)
{
    const struct {
        const QMetaObject &type;
        const char *name;
        const QMetaObject &base;
    } managers[] = {
        { KVXCWLoginImpl::staticMetaObject, "KVXCWLoginImpl", KVXCWLogin::staticMetaObject },
        { KVXCWOCRImpl::staticMetaObject, "KVXCWOCRImpl", KVXCWOCR::staticMetaObject },
        { KVXGlobalLockMgrImpl::staticMetaObject, "KVXGlobalLockMgrImpl",
            KVXGlobalLockMgr::staticMetaObject },
    };
    for (const auto &manager : managers) {
        EXPECT_STREQ(manager.type.className(), manager.name);
        EXPECT_EQ(manager.type.superClass(), &manager.base) << manager.name;
        EXPECT_EQ(ownMethods(manager.type), QStringList()) << manager.name;
        expectNothingElse(manager.type);
    }
}

TEST(MetaObjects, receiversHaveExactlyTheNotificationSlot)
{
    const struct {
        const QMetaObject &type;
        const char *name;
        const QMetaObject &base;
    } receivers[] = {
        { KVXCWProjectListImpl::staticMetaObject, "KVXCWProjectListImpl",
            KVXCWProjectList::staticMetaObject },
        { KVXCWIDManagerImpl::staticMetaObject, "KVXCWIDManagerImpl",
            KVXCWIDManager::staticMetaObject },
        { KVXCWUserImpl::staticMetaObject, "KVXCWUserImpl", KVXCWUser::staticMetaObject },
        { KVXReportTemplateMgrImpl::staticMetaObject, "KVXReportTemplateMgrImpl",
            KVXReportTemplateMgr::staticMetaObject },
    };
    for (const auto &receiver : receivers) {
        EXPECT_STREQ(receiver.type.className(), receiver.name);
        EXPECT_EQ(receiver.type.superClass(), &receiver.base);
        EXPECT_EQ(
            ownMethods(receiver.type), QStringList { QStringLiteral("onNotify(QJsonObject)") });
        EXPECT_EQ(
            receiver.type.method(receiver.type.methodOffset()).methodType(), QMetaMethod::Slot);
        expectNothingElse(receiver.type);
    }
}

TEST(MetaObjects, theOthersUseTheirInterfaces)
{
    EXPECT_EQ(&KVXCWMessageImpl::staticMetaObject, &KVXCWMessage::staticMetaObject);
    EXPECT_EQ(&KVXCWProjectDataImpl::staticMetaObject, &KVXCWProjectData::staticMetaObject);
    EXPECT_EQ(&KVXCWCommonImpl::staticMetaObject, &KVXCWCommon::staticMetaObject);
    const KVXCWMessageImpl messager;
    EXPECT_STREQ(messager.metaObject()->className(), "KVXCWMessage");
    const KVXCWCommonImpl common;
    EXPECT_STREQ(common.metaObject()->className(), "KVXCWCommon");
}
