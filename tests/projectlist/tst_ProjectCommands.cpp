#include "ProjectListFixture.h"

#include <KVXCollaboration/KVXCollaborator.h>

using namespace kvx::test;

namespace {

QJsonObject status(const QJsonValue &value)
{
    return { { text("statuscode"), value } };
}

class ProjectCommands : public ProjectListTest {
protected:
    ProjectCommands() { makeList({ project("{a}", "A"), project("{b}", "B", "Estimate") }); }

    void answer(const char *service, const char *reply)
    {
        host.network.answer(text(service), json(reply));
    }
    void answerGetProject(const char *guid)
    {
        host.network.answer(text("getproject"),
            { { text("statuscode"), 1 }, { text("Project"), project(guid, "Fetched") } });
    }
};

} // namespace

TEST_F(ProjectCommands, OnlyTheStatusOneIsSuccess)
{
    const std::vector<std::pair<QJsonValue, bool>> statuses { { 1, true }, { 1.0, true },
        { 1.9, true }, { 0, false }, { 0.5, false }, { -1, false }, { 2, false }, { 3, false },
        { 235, false }, { text("1"), false }, { true, false }, { QJsonValue::Null, false },
        { 1e300, false }, { -1e300, false }, { 4294967297.0, false }, { QJsonArray { 1 }, false },
        { QJsonValue::Undefined, false } };
    for (const Command &command : commands()) {
        for (const auto &[value, success] : statuses) {
            QJsonObject reply { { text("Name"), text("Project 1") },
                { text("users"), QJsonArray { QJsonObject { { text("Name"), text("Ben") } } } } };
            if (!value.isUndefined())
                reply.insert(text("statuscode"), value);
            host.network.answer(text(command.service), reply);
            answerGetProject("{n}");
            EXPECT_EQ(command.run(*list), success)
                << command.service << ' ' << value.toVariant().toString().toStdString();
        }
    }
    EXPECT_TRUE(host.takeLog().isEmpty()) << "commands log nothing";
}

TEST_F(ProjectCommands, AFailedPostIsAFailure)
{
    for (const Command &command : commands()) {
        host.network.failPost(text(command.service));
        EXPECT_FALSE(command.run(*list)) << command.service;
    }
    EXPECT_EQ(list->openProject(text("{a}")), 0);
    EXPECT_EQ(list->lockProject(text("{a}"), false), 0);
    EXPECT_TRUE(host.takeLog().isEmpty());
}

TEST_F(ProjectCommands, WithoutAServerNothingIsSentAndNothingChanges)
{
    const QJsonObject before = record("{a}")->toJson();
    ASSERT_FALSE(record("{a}")->addtionalInfo().isEmpty());
    host.unconfigure();
    for (const Command &command : commands())
        EXPECT_FALSE(command.run(*list)) << command.service;
    EXPECT_EQ(list->openProject(text("{a}")), 0);
    EXPECT_EQ(list->lockProject(text("{a}"), false), 0);
    expectNoRequest(host);
    EXPECT_TRUE(takeSignals().isEmpty());
    EXPECT_EQ(recordCount(), 2);
    EXPECT_EQ(record("{a}")->toJson(), before);
    EXPECT_EQ(record("{a}")->status(), KVXProjectInfo::Closed);
    EXPECT_EQ(FakeSynchronizer::created, 0);
}

TEST_F(ProjectCommands, EachIsPostedOnceToTheServiceUrlWithoutProgress)
{
    for (const Command &command : commands()) {
        host.network.takeRequests();
        answer(command.service, R"({"statuscode":0,"error":"e","message":"m"})");
        command.run(*list);
        EXPECT_EQ(host.network.takeServices(), texts({ command.service }));
        EXPECT_EQ(host.network.lastUrl(), text("http://127.0.0.1:8090/kvx/service"));
        EXPECT_EQ(host.network.lastReceiver(), nullptr);
        EXPECT_EQ(host.network.lastProgress(), nullptr);
    }
}

TEST_F(ProjectCommands, AGeneratedNameComesFromTheReply)
{
    answer("genprojectname", R"({"statuscode":1,"Name":"Project 7"})");
    EXPECT_EQ(list->genProjectName(), text("Project 7"));
    EXPECT_EQ(list->genProjectNameEx(), text("Project 7"));
    for (int time = 0; time < 2; ++time)
        expectJson(host.network.takeRequest(), R"({"service":"genprojectname"})");
    answer("genprojectname", R"({"statuscode":1,"Name":7})");
    EXPECT_TRUE(list->genProjectName().isEmpty());
}

TEST_F(ProjectCommands, ANewProjectIsRegisteredAndFetched)
{
    answer("newproject", R"({"statuscode":1.5})");
    answerGetProject("{n}");
    double raw = -1;

    EXPECT_TRUE(list->newProject(BQLibrary, text("Name %1"), text("{n}"), &raw));

    expectJson(host.network.takeRequest(), R"({"service":"newproject","Type":"BQLibrary",
        "Name":"Name %1","ProjectGUID":"{n}","CreatorName":"Anna Weiss",
        "CreatorEmail":"anna@example.com","Email":"anna@example.com","Amount":"0.00",
        "ProjectState":0})");
    expectJson(host.network.takeRequest(), R"({"service":"getproject","ProjectGUID":"{n}"})");
    expectNoRequest(host);
    EXPECT_EQ(raw, 1.5);
    EXPECT_NE(record("{n}"), nullptr);
    EXPECT_TRUE(takeSignals().isEmpty());
}

TEST_F(ProjectCommands, ANewProjectWhoseFetchFailsIsAFailureWithTheStatusOne)
{
    answer("newproject", R"({"statuscode":1})");
    answer("getproject", R"({"statuscode":310})");
    double raw = -1;
    EXPECT_FALSE(list->newProject(Tender, text("N"), text("{n}"), &raw));
    EXPECT_EQ(raw, 1);
    EXPECT_EQ(recordCount(), 2);
}

TEST_F(ProjectCommands, ARefusedNewProjectIsNotFetchedAndTheStatusIsHandedOut)
{
    answer("newproject", R"({"statuscode":311})");
    double raw = -1;
    EXPECT_FALSE(list->newProject(Tender, text("N"), text("{n}"), &raw));
    EXPECT_EQ(raw, 311);
    EXPECT_EQ(host.network.takeServices(), texts({ "newproject" }));
}

TEST_F(ProjectCommands, TheStatusIsOnlyHandedOutWhenTheRequestWasMade)
{
    const KVXProjectInfo source(text("S"), text("Tender"), KVXProjectInfo::Closed, {});
    const std::vector<std::pair<const char *, std::function<void(double *)>>> withStatus {
        { "newproject",
            [&](double *raw) { list->newProject(Tender, text("N"), text("{n}"), raw); } },
        { "addendumproject", [&](double *raw) { list->addendumProject(Tender, source, raw); } },
        { "renameproject",
            [&](double *raw) { list->renameProject(text("A"), text("B"), text("{a}"), raw); } },
    };
    for (const auto &[service, run] : withStatus) {
        double raw = -7;
        answer(service, R"({"statuscode":0.25})");
        run(&raw);
        EXPECT_EQ(raw, 0.25) << service;
        answer(service, R"({})");
        run(&raw);
        EXPECT_EQ(raw, 0) << service;
        raw = -7;
        host.network.failPost(text(service));
        run(&raw);
        EXPECT_EQ(raw, 0) << service << ": the post was made";
        run(nullptr);
    }
    host.unconfigure();
    for (const auto &[service, run] : withStatus) {
        double raw = -7;
        run(&raw);
        EXPECT_EQ(raw, -7) << service;
    }
}

TEST_F(ProjectCommands, AnAddendumCarriesWhatItsSourceSays)
{
    KVXProjectInfo source(text("Addendum 1"), text("Tender"), KVXProjectInfo::Closed, {});
    source.setGuid(text("{new}"));
    source.setAmount(text("99.50"));
    source.setBidStatus(4);
    source.setProjectState(1);
    source.setAddendumGuid(text("{amended}"));
    answerGetProject("{new}");
    double raw = -1;

    EXPECT_TRUE(list->addendumProject(Addendum, source, &raw));

    expectJson(host.network.takeRequest(), R"({"service":"addendumproject","Type":"Addendum",
        "Name":"Addendum 1","ProjectGUID":"{new}","CreatorName":"Anna Weiss",
        "CreatorEmail":"anna@example.com","Email":"anna@example.com","Amount":"99.50",
        "ProjectState":0,"BidStatus":4,"AddendumProjectGUID":"{amended}"})");
    expectJson(host.network.takeRequest(), R"({"service":"getproject","ProjectGUID":"{new}"})");
    EXPECT_EQ(raw, 1);
    EXPECT_NE(record("{new}"), nullptr);
}

TEST_F(ProjectCommands, AnAddendumWhoseFetchFailsIsAFailureWithTheStatusOne)
{
    const KVXProjectInfo source(text("Addendum 1"), text("Tender"), KVXProjectInfo::Closed, {});
    for (const bool carried : { true, false }) {
        carried ? answer("getproject", R"({"statuscode":310})")
                : host.network.failPost(text("getproject"));
        double raw = -1;
        EXPECT_FALSE(list->addendumProject(Addendum, source, &raw));
        EXPECT_EQ(raw, 1);
        EXPECT_EQ(host.network.takeServices(), texts({ "addendumproject", "getproject" }));
        EXPECT_EQ(recordCount(), 2);
    }
}

TEST_F(ProjectCommands, RemovingAsksTheServerAndLeavesTheListToTheNotification)
{
    EXPECT_TRUE(list->removeProject(text("{a}")));
    expectJson(host.network.takeRequest(),
        R"({"service":"removeproject","ProjectGUID":"{a}","Email":"anna@example.com"})");
    EXPECT_NE(record("{a}"), nullptr);
    EXPECT_TRUE(takeSignals().isEmpty());
}

TEST_F(ProjectCommands, UpdatingSendsTheWholeRecordBelowServiceAndEmail)
{
    KVXProjectInfo info(text("A"), text("Tender"), KVXProjectInfo::Closed, {});
    info.setGuid(text("{a}"));
    info.setAmount(text("5.00"));
    info.setProjectState(1);
    QJsonObject expected = info.toJson();
    expected.insert(text("service"), text("updateproject"));
    expected.insert(text("Email"), text("anna@example.com"));

    EXPECT_TRUE(list->updateProject(&info));

    EXPECT_EQ(host.network.takeRequest(), expected);
    EXPECT_EQ(record("{a}")->amount(), text("1234567.89"));
    EXPECT_FALSE(list->updateProject(nullptr));
    expectNoRequest(host);
}

TEST_F(ProjectCommands, RenamingSendsBothNamesAndSignals)
{
    double raw = -1;
    EXPECT_TRUE(list->renameProject(text("A"), text("B"), text("{a}"), &raw));
    expectJson(host.network.takeRequest(), R"({"service":"renameproject","OldName":"A",
        "NewName":"B","ProjectGUID":"{a}","Email":"anna@example.com"})");
    EXPECT_EQ(raw, 1);
    EXPECT_EQ(takeSignals(), texts({ "nameChanged" }));
    EXPECT_EQ(record("{a}")->name(), text("A")) << "the notification brings the name";

    answer("renameproject", R"({"statuscode":311})");
    EXPECT_FALSE(list->renameProject(text("A"), text("B"), text("{a}")));
    EXPECT_TRUE(takeSignals().isEmpty());
}

TEST_F(ProjectCommands, ANameInTheListExistsWithoutARequest)
{
    EXPECT_TRUE(list->existsProject(text("A")));
    host.unconfigure();
    EXPECT_TRUE(list->existsProject(text("A")));
    EXPECT_FALSE(list->existsProject(text("Z")));
    expectNoRequest(host);
}

TEST_F(ProjectCommands, ANameThatIsNotInTheListIsAsked)
{
    EXPECT_TRUE(list->existsProject(text("Z")));
    expectJson(host.network.takeRequest(), R"({"service":"existsproject","Name":"Z"})");
    answer("existsproject", R"({"statuscode":316})");
    EXPECT_FALSE(list->existsProject(text("Z")));
}

TEST_F(ProjectCommands, OpeningMarksTheRecordAndMakesTheSynchroniser)
{
    EXPECT_EQ(list->openProject(text("{a}")), 1);
    expectJson(host.network.takeRequest(),
        R"({"service":"openproject","Email":"anna@example.com","ProjectGUID":"{a}"})");
    EXPECT_EQ(record("{a}")->status(), KVXProjectInfo::Opened);
    EXPECT_EQ(record("{b}")->status(), KVXProjectInfo::Closed);
    EXPECT_EQ(FakeSynchronizer::created, 1);
    EXPECT_TRUE(takeSignals().isEmpty());
}

TEST_F(ProjectCommands, ARefusedOpeningReturnsTheServersStatus)
{
    for (const int code : { 0, 2, 310, 314, 321, -5 }) {
        host.network.answer(text("openproject"), status(code));
        EXPECT_EQ(list->openProject(text("{a}")), code);
    }
    host.network.answer(text("openproject"), status(1e300));
    EXPECT_EQ(list->openProject(text("{a}")), std::numeric_limits<int>::max());
    EXPECT_EQ(record("{a}")->status(), KVXProjectInfo::Closed);
    EXPECT_EQ(FakeSynchronizer::created, 0);
}

TEST_F(ProjectCommands, OpeningAProjectThatIsNotListedReturnsOneAndOpensNothing)
{
    EXPECT_EQ(list->openProject(text("{x}")), 1);
    EXPECT_EQ(FakeSynchronizer::created, 0);
    // Not open: a removal of it would otherwise be ignored.
    notify(message(
        "New", project("{x}", "X", "Tender", withUsers({ collaborator("anna@example.com", 1) }))));
    EXPECT_TRUE(
        notify(message("Remove", project("{x}", "X"))).contains(text("projectRemoved {x}")));
}

TEST_F(ProjectCommands, ClosingDropsTheManagersFirstAndThenAsksTheServer)
{
    open("{a}");
    int destroyedBeforePost = -1;
    host.network.handle(text("closeproject"), [&](const QJsonObject &, QJsonObject &reply) {
        destroyedBeforePost = FakeSynchronizer::destroyed;
        EXPECT_EQ(record("{a}")->status(), KVXProjectInfo::Closed);
        reply = status(1);
        return true;
    });

    EXPECT_TRUE(list->closeProject(text("{a}")));

    expectJson(host.network.takeRequest(),
        R"({"service":"closeproject","Email":"anna@example.com","ProjectGUID":"{a}"})");
    EXPECT_EQ(destroyedBeforePost, 1);
    EXPECT_EQ(takeSignals(), texts({ "projectClosed" }));
}

TEST_F(ProjectCommands, ClosingHappensHereWhateverTheServerAnswers)
{
    for (const int code : { 0, 2, 3, 310 }) {
        open("{a}");
        host.network.answer(text("closeproject"), status(code));
        EXPECT_FALSE(list->closeProject(text("{a}")));
        EXPECT_EQ(record("{a}")->status(), KVXProjectInfo::Closed);
        EXPECT_TRUE(takeSignals().isEmpty()) << code;
    }
    EXPECT_EQ(FakeSynchronizer::destroyed, 4);
}

TEST_F(ProjectCommands, ClosingWithoutAServerClosesHere)
{
    open("{a}");
    host.unconfigure();
    EXPECT_FALSE(list->closeProject(text("{a}")));
    EXPECT_EQ(record("{a}")->status(), KVXProjectInfo::Closed);
    EXPECT_EQ(FakeSynchronizer::destroyed, 1);
    expectNoRequest(host);
    EXPECT_TRUE(takeSignals().isEmpty());
}

TEST_F(ProjectCommands, ClosingAProjectThatIsNotOpenStillAsksAndSignals)
{
    EXPECT_TRUE(list->closeProject(text("{x}")));
    EXPECT_EQ(host.network.takeServices(), texts({ "closeproject" }));
    EXPECT_EQ(takeSignals(), texts({ "projectClosed" }));
    EXPECT_EQ(FakeSynchronizer::destroyed, 0);
}

TEST_F(ProjectCommands, ClosingByTheRecordsOwnGuidIsSafe)
{
    open("{a}");
    QObject::connect(
        list, &KVXCWProjectList::projectClosed, [this] { list->clearProject(text("{a}")); });
    EXPECT_TRUE(list->closeProject(record("{a}")->guid()));
    EXPECT_EQ(record("{a}"), nullptr);
}

TEST_F(ProjectCommands, LockingReturnsTheStatusAndZeroWhenThePostFails)
{
    host.network.answer(text("projectlock"), status(314));
    EXPECT_EQ(list->lockProject(text("{a}"), false), 314);
    host.network.answerOnce(text("projectlock"), status(0));
    EXPECT_EQ(list->lockProject(text("{a}"), false), 0);
    expectJson(host.network.takeRequest(), R"({"service":"projectlock","ProjectGUID":"{a}",
        "Email":"anna@example.com","ReleaseLock":false})");
    host.network.takeRequest();
    host.network.answer(text("projectlock"), status(1));
    EXPECT_EQ(list->lockProject(text("{a}"), true), 1);
    expectJson(host.network.takeRequest(), R"({"service":"projectlock","ProjectGUID":"{a}",
        "Email":"anna@example.com","ReleaseLock":true})");
    host.network.handle(text("projectlock"), [](const QJsonObject &, QJsonObject &reply) {
        reply = status(1);
        return false; // answered, yet not carried to the end
    });
    EXPECT_EQ(list->lockProject(text("{a}"), true), 0);
}

TEST_F(ProjectCommands, OnlineEditorsAreTheNamesInOrder)
{
    answer("onlineeditors",
        R"({"statuscode":1,"users":[{"Name":"Ben"},{"Name":"Anna"},{"Email":"x"},5]})");
    EXPECT_EQ(list->onlineEditors(text("{a}")), texts({ "Ben", "Anna", "", "" }));
    expectJson(host.network.takeRequest(),
        R"({"service":"onlineeditors","Email":"anna@example.com","ProjectGUID":"{a}"})");
    answer("onlineeditors", R"({"statuscode":1,"users":{"Name":"Ben"}})");
    EXPECT_TRUE(list->onlineEditors(text("{a}")).isEmpty());
    answer("onlineeditors", R"({"statuscode":310,"users":[{"Name":"Ben"}]})");
    EXPECT_TRUE(list->onlineEditors(text("{a}")).isEmpty());
}

TEST_F(ProjectCommands, AdditionalInformationGoesAsAnObjectAndIntoTheRecord)
{
    const QJsonObject info = json(R"({"client":"Town","list":[1,2]})");
    EXPECT_TRUE(list->updateProjectAdditionalInfo(text("{a}"), info));
    expectJson(host.network.takeRequest(), R"({"service":"updateprojectadditionalinfo",
        "Email":"anna@example.com","ProjectGUID":"{a}",
        "AdditionalInfo":{"client":"Town","list":[1,2]}})");
    EXPECT_EQ(record("{a}")->addtionalInfo(), info);
    EXPECT_TRUE(list->updateProjectAdditionalInfo(text("{unlisted}"), info));

    answer("updateprojectadditionalinfo", R"({"statuscode":314})");
    EXPECT_FALSE(list->updateProjectAdditionalInfo(text("{a}"), {}));
    EXPECT_EQ(record("{a}")->addtionalInfo(), info) << "a refusal changes nothing";
}

TEST_F(ProjectCommands, GroupRequestsCarryNoEmail)
{
    EXPECT_TRUE(list->newProjectGroup(Estimate, text("G")));
    expectJson(host.network.takeRequest(),
        R"({"service":"newprojectgroup","Name":"G","Type":"Estimate"})");
    EXPECT_TRUE(list->removeProjectGroup(text("G")));
    expectJson(host.network.takeRequest(), R"({"service":"removeprojectgroup","Name":"G"})");
    EXPECT_TRUE(list->renameProjectGroup(text("G"), text("H")));
    expectJson(host.network.takeRequest(),
        R"({"service":"renameprojectgroup","OldName":"G","NewName":"H"})");
    EXPECT_TRUE(list->existsProjectGroup(text("H")));
    expectJson(host.network.takeRequest(), R"({"service":"existsprojectgroup","Name":"H"})");
}

TEST_F(ProjectCommands, WithoutAUserEmailAndNameAreEmpty)
{
    host.removeUser();
    list->newProject(Tender, text("N"), text("{n}"));
    expectJson(host.network.takeRequest(), R"({"service":"newproject","Type":"Tender","Name":"N",
        "ProjectGUID":"{n}","CreatorName":"","CreatorEmail":"","Email":"","Amount":"0.00",
        "ProjectState":0})");
    KVXCollaborator::getInstance()->setLoginManager(nullptr);
    host.network.takeRequests();
    list->closeProject(text("{a}"));
    expectJson(
        host.network.takeRequest(), R"({"service":"closeproject","Email":"","ProjectGUID":"{a}"})");
}
