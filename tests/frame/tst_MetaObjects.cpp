#include "login/KVXCWLoginImpl.h"
#include "messaging/KVXCWMessageImpl.h"
#include "projectdata/KVXCWIDManagerImpl.h"
#include "projectdata/KVXCWProjectDataImpl.h"
#include "projectlist/KVXCWProjectListImpl.h"
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

TEST(MetaObjects, theLoginManagerHasOneWithoutMembers)
{
    const QMetaObject &type = KVXCWLoginImpl::staticMetaObject;
    EXPECT_STREQ(type.className(), "KVXCWLoginImpl");
    EXPECT_EQ(type.superClass(), &KVXCWLogin::staticMetaObject);
    EXPECT_EQ(ownMethods(type), QStringList());
    expectNothingElse(type);
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
    const KVXCWMessageImpl messager;
    EXPECT_STREQ(messager.metaObject()->className(), "KVXCWMessage");
}
