#include "projectdata/LossyNetwork.h"
#include "projectdata/ProjectFixture.h"

#include <KVXCollaboration/KVXCollaborator.h>

namespace kvx::test {

namespace {

using Fault = LossyNetwork::Fault;

/// A save of a project that is one log behind and has new items in two modules: every request that
/// a save can make is made.
class FaultSweep : public ProjectFixture {
protected:
    struct Outcome {
        KVXCWProjectData::ErrorCode result;
        int requests;
    };

    void prepare()
    {
        KVXCollaborator::getInstance()->reset(false, QString());
        server.reset();
        info.infoCalls = 0;
        database.executions = 0;
        open(3);
        KVXItemCheckState holder;
        items->checkState(4, 1, holder);
        items->registerCreatedItems(4, { 1001 });
        items->registerCreatedItems(5, { 1002 });
        publishLogs(4);
    }

    Outcome saveWith(const std::function<Fault(int)> &fault)
    {
        LossyNetwork network(host.network);
        network.fault = fault;
        const KVXCWProjectData::ErrorCode result = project->saveProject(&info);
        check(network.exchanges, result);
        return { result, network.exchanges.size() };
    }

    /// What must hold after every save, judged by what the client got to see.
    void check(const QList<LossyNetwork::Exchange> &exchanges, KVXCWProjectData::ErrorCode result)
    {
        int locksWon = 0;
        int releases = 0;
        int accepted = 0;
        for (const LossyNetwork::Exchange &exchange : exchanges) {
            const QString service = exchange.request.value(QLatin1String("service")).toString();
            const bool ok = exchange.reply.value(QLatin1String("statuscode")).toInt() == 1;
            const bool release = exchange.request.value(QLatin1String("ReleaseLock")).toBool();
            if (service == QLatin1String("loglock")) {
                releases += release ? 1 : 0;
                locksWon
                    += !release && ok && exchange.reply.value(QLatin1String("Lock")).toInt() == 1
                    ? 1
                    : 0;
            }
            accepted += service == QLatin1String("sendservertomerge") && ok ? 1 : 0;
        }
        EXPECT_EQ(releases, locksWon) << "a release exactly when a lock was won";
        EXPECT_EQ(project->logVersion(), 3 + database.executions + accepted)
            << "the version moves only with an applied log or an accepted merge";
        EXPECT_LE(accepted, 1);
        const bool reported
            = result == KVXCWProjectData::Success || result == KVXCWProjectData::CheckOutFailed;
        EXPECT_EQ(reported && info.infoCalls > 0, accepted == 1)
            << "a host knows whether its changes are published";
        if (locksWon > 0) {
            EXPECT_EQ(exchanges.last().request.value(QLatin1String("ReleaseLock")), true)
                << "the release comes last";
            EXPECT_EQ(
                exchanges.last().request.value(QLatin1String("LogVersion")), project->logVersion());
        }
    }

    /// Once the network is well again the project catches up and saves.
    void expectRecovery()
    {
        items->registerCreatedItems(4, { 1003 });
        EXPECT_EQ(project->saveProject(&info), KVXCWProjectData::Success);
        EXPECT_EQ(project->logVersion(), server.version);
        EXPECT_FALSE(server.locked);
        EXPECT_TRUE(server.staged.isEmpty());
        for (int version = 4; version <= server.version; ++version)
            EXPECT_TRUE(server.files.contains(server.logName(version))) << version;
    }

    int requestsOfAGoodSave()
    {
        prepare();
        const Outcome outcome = saveWith(nullptr);
        EXPECT_EQ(outcome.result, KVXCWProjectData::Success);
        EXPECT_EQ(outcome.requests, 10);
        EXPECT_EQ(server.version, 5);
        return outcome.requests;
    }
};

} // namespace

TEST_F(FaultSweep, everyRequestFailsInTurn)
{
    const int requests = requestsOfAGoodSave();
    for (const Fault fault : { Fault::RequestLost, Fault::ReplyLost, Fault::Refused }) {
        for (int failing = 0; failing < requests; ++failing) {
            SCOPED_TRACE(testing::Message() << "fault " << fault << " at request " << failing);
            prepare();
            saveWith([&](int number) { return number == failing ? fault : Fault::None; });
            expectRecovery();
        }
    }
}

TEST_F(FaultSweep, everythingFailsFromARequestOn)
{
    const int requests = requestsOfAGoodSave();
    for (const Fault fault : { Fault::RequestLost, Fault::ReplyLost, Fault::Refused }) {
        for (int first = 0; first < requests; ++first) {
            SCOPED_TRACE(testing::Message() << "fault " << fault << " from request " << first);
            prepare();
            saveWith([&](int number) { return number >= first ? fault : Fault::None; });
            expectRecovery();
        }
    }
}

TEST_F(FaultSweep, twoRequestsFail)
{
    const int requests = requestsOfAGoodSave();
    for (int first = 0; first < requests; ++first) {
        for (int second = first + 1; second < requests; ++second) {
            SCOPED_TRACE(testing::Message() << "requests " << first << " and " << second);
            prepare();
            saveWith([&](int number) {
                return number == first ? Fault::ReplyLost
                    : number == second ? Fault::Refused
                                       : Fault::None;
            });
            expectRecovery();
        }
    }
}

TEST_F(FaultSweep, eachFaultHasItsResult)
{
    // The requests of the good save, in order, and what their loss gives.
    const QList<KVXCWProjectData::ErrorCode> results {
        KVXCWProjectData::GetLogVersionFailed, KVXCWProjectData::DownloadLogsFailed,
        KVXCWProjectData::CheckOutFailed, // the states after the new log
        KVXCWProjectData::Success, // no lock service: nothing to publish
        KVXCWProjectData::UploadFailed, KVXCWProjectData::UploadFailed,
        KVXCWProjectData::SendToMergeFailed,
        KVXCWProjectData::Success, // new items: not reported
        KVXCWProjectData::Success,
        KVXCWProjectData::Success, // the release
    };
    for (int failing = 0; failing < results.size(); ++failing) {
        SCOPED_TRACE(failing);
        prepare();
        const Outcome outcome = saveWith(
            [&](int number) { return number == failing ? Fault::RequestLost : Fault::None; });
        EXPECT_EQ(outcome.result, results.at(failing));
    }
}

} // namespace kvx::test
