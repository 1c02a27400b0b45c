#include "frame/EntryPoints.h"

#include "common/KVXCWCommonImpl.h"
#include "login/KVXCWLoginImpl.h"
#include "messaging/KVXCWMessageImpl.h"
#include "projectdata/KVXCWIDManagerImpl.h"
#include "projectdata/KVXCWProjectDataImpl.h"
#include "projectlist/KVXCWProjectListImpl.h"
#include "projectlist/KVXCWProjectPermissionImpl.h"
#include "resources/KVXCWFileServiceImpl.h"
#include "resources/KVXCWOCRImpl.h"
#include "resources/KVXGlobalLockMgrImpl.h"
#include "resources/KVXReportTemplateMgrImpl.h"
#include "support/FakeHost.h"
#include "users/KVXCWUserImpl.h"

#include <gtest/gtest.h>
#include <memory>

namespace kvx::test {

namespace {

/// Two calls give two objects of the implementation, whatever the slot held.
template <class Implementation, class Interface> void expectCreates(void (*init)(Interface **))
{
    Interface *first = nullptr;
    init(&first);
    Interface *second = first;
    init(&second);
    const std::unique_ptr<Interface> owned[]
        = { std::unique_ptr<Interface>(first), std::unique_ptr<Interface>(second) };

    EXPECT_NE(dynamic_cast<Implementation *>(first), nullptr);
    EXPECT_NE(dynamic_cast<Implementation *>(second), nullptr);
    EXPECT_NE(first, second);
}

} // namespace

TEST(EntryPoints, eachCreatesANewManagerOfItsClass)
{
    const FakeHost host;
    expectCreates<KVXCWLoginImpl>(initLoginManager);
    expectCreates<KVXCWMessageImpl>(initMessage);
    expectCreates<KVXCWFileServiceImpl>(initFileService);
    expectCreates<KVXCWOCRImpl>(initOcr);
    expectCreates<KVXCWProjectListImpl>(initProjectListManager);
    expectCreates<KVXCWProjectPermissionImpl>(initProjectPermissionManager);
    expectCreates<KVXCWProjectDataImpl>(initProjectDataSynchronizer);
    expectCreates<KVXCWIDManagerImpl>(initIdManager);
    expectCreates<KVXReportTemplateMgrImpl>(initReportTemplateMgr);
    expectCreates<KVXGlobalLockMgrImpl>(initGlobalLockMgr);
    expectCreates<KVXCWCommonImpl>(initCommon);
    expectCreates<KVXCWUserImpl>(initUserManager);
}

TEST(EntryPoints, theServerStatusCheckerLeavesItsSlotUntouched)
{
    int object = 0;
    void *slot = &object;
    initServerStatusChecker(&slot);
    EXPECT_EQ(slot, &object);

    slot = nullptr;
    initServerStatusChecker(&slot);
    EXPECT_EQ(slot, nullptr);

    initServerStatusChecker(nullptr); // not even read
}

TEST(EntryPoints, managersAreCreatedWithoutAServer)
{
    FakeHost host;
    host.unconfigure();
    expectCreates<KVXCWProjectListImpl>(initProjectListManager);
    expectCreates<KVXCWIDManagerImpl>(initIdManager);
    expectCreates<KVXCWUserImpl>(initUserManager);
    expectNoRequest(host);
}

} // namespace kvx::test
