#include "frame/EntryPoints.h"

#include "common/KVXCWCommonImpl.h"
#include "frame/NewManager.h"
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
#include <stdexcept>

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

template <class Failure> class Unfinished : public KVXCWMessageImpl {
public:
    Unfinished() { throw Failure(); }
};

/// No memory for the object itself.
class Unallocated : public KVXCWMessageImpl {
public:
    static void *operator new(std::size_t, const std::nothrow_t &) noexcept { return nullptr; }
    static void operator delete(void *, const std::nothrow_t &) noexcept { }
    static void operator delete(void *) noexcept { }
};

struct OutOfThreads : std::runtime_error {
    OutOfThreads()
        : runtime_error("no thread")
    {
    }
};

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

TEST(EntryPoints, aManagerThatCannotBeMadeLeavesNullInTheSlot)
{
    KVXCWMessageImpl earlier;
    for (void (*write)(KVXCWMessage **) : { &writeNewManager<Unallocated, KVXCWMessage>,
             &writeNewManager<Unfinished<std::bad_alloc>, KVXCWMessage>,
             &writeNewManager<Unfinished<OutOfThreads>, KVXCWMessage> }) {
        KVXCWMessage *slot = &earlier;
        EXPECT_NO_THROW(write(&slot));
        EXPECT_EQ(slot, nullptr);
    }
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
