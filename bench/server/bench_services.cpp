#include "ServiceHarness.h"
#include "store/PermissionStore.h"
#include "store/ProjectStore.h"

#include <chrono>
#include <cstdio>
#include <functional>

using namespace kvx::test;
using namespace kvx::server;

namespace {

constexpr int projectCount = 10'000;
constexpr int itemCount = 10'000;
constexpr int rounds = 5;

/// Milliseconds of the fastest of some rounds; `prepare` is not counted.
double fastest(const std::function<void()> &work, const std::function<void()> &prepare = {})
{
    double best = 1e9;
    for (int i = 0; i < rounds; ++i) {
        if (prepare)
            prepare();
        const auto begin = std::chrono::steady_clock::now();
        work();
        const std::chrono::duration<double, std::milli> time = std::chrono::steady_clock::now() - begin;
        best = std::min(best, time.count());
    }
    return best;
}

void report(const char *what, double milliseconds, double unit)
{
    std::printf("%-52s %9.2f ms %8.1f\n", what, milliseconds, milliseconds / unit);
}

} // namespace

/// What the services cost, each also as a multiple of one small change in the same run (a
/// transaction with its sync to disk), which is the unit that holds from one machine to the next.
int main()
{
    ServiceHarness harness;
    const Session admin = harness.join("root@example.com", "Administrator");
    const Session anna = harness.join("anna@example.com");
    {
        Transaction transaction(harness.db(), Transaction::Kind::Write);
        for (int i = 1; i <= projectCount; ++i) {
            const auto id = ProjectStore(harness.db())
                                .insert({ guidOf(i), "Project " + std::to_string(i), "Tender", "1.00", "",
                                    anna.userId, 0, 0, wallTime() });
            PermissionStore(harness.db()).set(id, anna.userId, { 1, 1, 1, 1 });
        }
        transaction.commit();
    }
    std::string ids;
    for (int i = 1; i <= itemCount; ++i)
        ids += std::to_string(i) + ';';
    const std::string guid = guidOf(1);
    const auto items = [&](const char *service, const std::string &list) {
        return Message(service).set("ProjectGUID", guid).set("ModuleType", 1).set("NotifyOther", false).set("IDs", list);
    };

    int n = 0;
    const double unit = fastest([&] {
        admin.ask(Message("updateproject").set("ProjectGUID", guid).set("BidStatus", ++n));
    });
    report("updateproject", unit, unit);
    const Message list("projectlistsynctolocal");
    report("list of 10,000 projects, nothing rendered",
        fastest([&] { anna.ask(list); }, [&] { harness.forgetRendered(); }), unit);
    report("list of 10,000 projects", fastest([&] { anna.ask(list); }), unit);
    report("list of 10,000 projects, seen by role", fastest([&] { admin.ask(list); }), unit);
    report("checkout of 10,000 items",
        fastest([&] { anna.ask(items("checkout", ids)); },
            [&] { harness.db().run("DELETE FROM item"); }), unit);
    report("checkout of 10,000 items, repeated", fastest([&] { anna.ask(items("checkout", ids)); }), unit);
    report("picture of 10,000 items", fastest([&] { anna.ask(items("checkout", "")); }), unit);
    report("checkin of 10,000 items", fastest([&] { anna.ask(items("checkin", ids)); },
        [&] { anna.ask(items("checkout", ids)); }), unit);
    int version = -1;
    report("a whole save", fastest([&] { version += save(anna, guid, version).status() == 1; }), unit);
    const Session waiter = harness.login("anna@example.com", "laptop");
    const auto lock = [&](bool release) {
        return Message("loglock").set("ProjectGUID", guid).set("LogVersion", version).set("ReleaseLock", release)
            .set("Email", "anna@example.com");
    };
    std::future<Answer> waiting;
    report("log lock handed over to a waiting request", fastest(
        [&] {
            anna.askLater(lock(true));
            waiting.get();
        },
        [&] {
            waiter.askAs(lock(true));
            anna.askAs(lock(false));
            waiting = waiter.askLater(lock(false));
            anna.askAs(Message("genprojectname"));
        }), unit);
    waiter.askAs(lock(true));
    report("allocateidrange", fastest([&] {
        anna.ask(Message("allocateidrange").set("ProjectGUID", guid).set("NewRange", true));
    }), unit);
    return version == rounds - 1 ? 0 : 1;
}
