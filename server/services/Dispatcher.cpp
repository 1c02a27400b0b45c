#include "services/Dispatcher.h"
#include "base/Config.h"
#include "base/Log.h"
#include "base/Text.h"
#include "services/HeldRequests.h"
#include "services/RateLimiter.h"
#include "services/WorkPool.h"
#include "store/Db.h"
#include "store/DbPool.h"

#include <FailPoint.h>
#include <algorithm>
#include <sodium.h>

namespace kvx::server {

/// One run of a handler, from the queue to its outcome.
struct Dispatcher::Run {
    ExchangePtr exchange;
    Step step;
    Completion done;
    Reply::Continuation continuation;
    bool lazily = false; ///< the continuation
    bool heavy = false; ///< the handler said so

    bool isLight() const
    {
        return step == Step::BeforeUpload
            || (hasRule(exchange->rules, Light) && !continuation && !heavy);
    }
    bool writes() const { return !isLight() && hasRule(exchange->rules, Writes); }
    Transaction::Kind kind() const
    {
        if (!writes())
            return Transaction::Kind::Read;
        return lazily || hasRule(exchange->rules, WritesLazily) ? Transaction::Kind::WriteLazily
                                                                : Transaction::Kind::Write;
    }
};

namespace {

constexpr std::size_t mebibyte = std::size_t { 1 } << 20;

std::string newRequestId()
{
    unsigned char bytes[8];
    randombytes_buf(bytes, sizeof bytes);
    return hex(bytes, sizeof bytes);
}

const Service *findService(const Endpoint &endpoint, const std::string &name)
{
    for (const ServiceTable *table : endpoint.tables) {
        for (const Service &service : *table) {
            if (name == service.name)
                return &service;
        }
    }
    return nullptr;
}

std::size_t bodyLimit(const Config &config, ServiceRule rules)
{
    if (hasRule(rules, HugeBody))
        return 16 * mebibyte;
    if (hasRule(rules, LargeBody))
        return 8 * mebibyte;
    return static_cast<std::size_t>(config.requestLimit);
}

/// The HTTP status for clients that look at nothing else.
int judgedStatus(StatusCode code)
{
    switch (code) {
    case StatusCode::Ok:
        return 200;
    case StatusCode::NotLoggedIn:
        return 401;
    case StatusCode::NotAllowed:
    case StatusCode::WrongIdentity:
        return 403;
    case StatusCode::NoSuchTable:
    case StatusCode::NoResourcePackage:
        return 404;
    case StatusCode::TableChanged:
        return 409;
    case StatusCode::TooLarge:
        return 413;
    case StatusCode::ReadOnly:
    case StatusCode::Busy:
        return 503;
    case StatusCode::Failed:
    case StatusCode::StorageFull:
        return 500;
    default:
        return 400;
    }
}

Reply tooLarge(std::size_t limit)
{
    return Reply::refused(StatusCode::TooLarge, { std::to_string(limit) + " bytes" })
        .setHttpStatus(413);
}

Reply busy(int httpStatus)
{
    return Reply::refused(StatusCode::Busy).setHttpStatus(httpStatus);
}

} // namespace

Dispatcher::Dispatcher(const Environment &environment, DbPool &pool, Told told)
    : m_environment(environment)
    , m_pool(pool)
    , m_told(std::move(told))
    , m_held(std::make_unique<HeldRequests<Run>>([this](std::shared_ptr<Run> run) {
        run->exchange->patienceOver
            = m_draining || m_environment.clock.now() >= run->exchange->holdEnd;
        start(std::move(run));
    }))
    , m_limiter(std::make_unique<RateLimiter>())
    , m_hashers(std::make_unique<WorkPool>(2, 200))
    , m_workers(std::make_unique<WorkPool>(2, 2000))
    , m_readers(std::make_unique<WorkPool>(2, 50))
{
}

Dispatcher::~Dispatcher() = default;

void Dispatcher::drain()
{
    m_draining = true;
    m_held->releaseAll();
}

void Dispatcher::stopWorkers()
{
    m_hashers->stop();
    m_workers->stop();
    m_readers->stop();
}

void Dispatcher::dispatch(const ExchangePtr &exchange, Completion done)
{
    if (!prepare(exchange, done))
        return;
    if (exchange->service->beforeUpload) {
        finish(exchange, done, Reply::refused(StatusCode::BadRequest, { "the file is missing" }));
        return;
    }
    start(std::make_shared<Run>(Run { exchange, Step::Handler, std::move(done), {}, false }));
}

void Dispatcher::beginUpload(const ExchangePtr &exchange, Completion decided)
{
    exchange->multipart = true;
    if (!prepare(exchange, decided))
        return;
    if (!exchange->service->beforeUpload) {
        finish(exchange, decided,
            Reply::refused(StatusCode::BadRequest, { "this service takes no file" }));
        return;
    }
    start(
        std::make_shared<Run>(Run { exchange, Step::BeforeUpload, std::move(decided), {}, false }));
}

void Dispatcher::finishUpload(const ExchangePtr &exchange, Completion done)
{
    start(std::make_shared<Run>(Run { exchange, Step::Handler, std::move(done), {}, false }));
}

void Dispatcher::noteProgress(const ExchangePtr &exchange)
{
    const Time now = m_environment.clock.now();
    if (exchange->sessionId == 0 || now - exchange->lastTouch < m_environment.config.lockLease / 6)
        return;
    exchange->lastTouch = now;
    touchLater(exchange->sessionId);
}

void Dispatcher::touchLater(std::int64_t sessionId)
{
    m_pool.write([this, sessionId](Db &db) {
        try {
            Transaction transaction(db, Transaction::Kind::WriteLazily);
            touchSession(db, m_environment.config, m_environment.clock.now(), sessionId);
            transaction.commit();
        } catch (const DbError &error) {
            logLine(LogLevel::Warning, "session not noted", { { "cause", error.what() } });
        }
    });
}

bool Dispatcher::prepare(const ExchangePtr &exchange, const Completion &done)
{
    exchange->requestId = newRequestId();
    exchange->firstAsked = m_environment.clock.now();
    if (m_draining) {
        finish(exchange, done, busy(503));
        return false;
    }
    const char *fixed = exchange->endpoint->service;
    const std::size_t size = exchange->body.size();
    if (size > static_cast<std::size_t>(m_environment.config.requestLimit)) {
        // A service that takes no large body need not be parsed to be refused.
        const Service *service
            = findService(*exchange->endpoint, fixed ? fixed : serviceNamedIn(exchange->body));
        const std::size_t limit
            = bodyLimit(m_environment.config, service ? service->rules : Anonymous);
        if (size > limit) {
            finish(exchange, done, tooLarge(limit));
            return false;
        }
    }
    try {
        exchange->request = Request::parse(exchange->body, fixed ? fixed : "");
    } catch (const BadRequest &error) {
        finish(exchange, done,
            Reply::refused(StatusCode::BadRequest, { error.what() }).setHttpStatus(400));
        return false;
    }
    const Json *guid = exchange->request->find("ProjectGUID");
    if (guid && guid->IsString() && isGuid({ guid->GetString(), guid->GetStringLength() }))
        exchange->projectGuid = guid->GetString();
    const std::string &name = exchange->request->service();
    exchange->service = findService(*exchange->endpoint, name);
    if (!exchange->service) {
        finish(exchange, done, Reply::refused(StatusCode::UnknownService, { name }));
        return false;
    }
    exchange->rules = exchange->service->rulesFor(*exchange->request);
    exchange->body.clear();
    exchange->body.shrink_to_fit();
    return true;
}

void Dispatcher::start(std::shared_ptr<Run> run)
{
    const bool writes = run->writes();
    const bool light = run->isLight();
    const auto job = [this, run = std::move(run)](Db &db) { execute(db, run); };
    if (writes)
        m_pool.write(job);
    else if (light)
        m_pool.readHere(job);
    else
        m_pool.read(job);
}

void Dispatcher::execute(Db &db, const std::shared_ptr<Run> &run)
{
    Exchange &exchange = *run->exchange;
    if (exchange.abandoned && exchange.heldNumber != 0) {
        finish(run->exchange, run->done, busy(503));
        return;
    }
    Call call(m_environment, db, *exchange.request);
    call.m_file = exchange.file;
    call.m_address = exchange.address;
    call.m_token = exchange.token;
    call.m_connectionId = exchange.connectionId;
    call.m_firstAsked = exchange.firstAsked;
    call.m_patienceOver = exchange.patienceOver;
    call.m_light = run->isLight();

    Reply reply = Reply::refused(StatusCode::Failed);
    try {
        if (KVX_FAIL_POINT("request read: " + exchange.request->service()))
            throw DbError(DbError::Kind::Other, "disk I/O error");
        reply = runInTransaction(db, *run, call);
    } catch (const BadRequest &error) {
        reply = Reply::refused(StatusCode::BadRequest, { error.what() });
    } catch (const DbError &error) {
        logLine(LogLevel::Error, "request failed",
            { { "id", exchange.requestId }, { "service", exchange.request->service() },
                { "cause", error.what() } });
        const bool full = error.kind() == DbError::Kind::Full;
        reply = Reply::refused(full ? StatusCode::StorageFull : StatusCode::Failed);
    } catch (const std::exception &error) {
        logLine(LogLevel::Error, "request failed",
            { { "id", exchange.requestId }, { "service", exchange.request->service() },
                { "cause", error.what() } });
        reply = Reply::refused(StatusCode::Failed);
    }
    settle(run, std::move(reply));
}

Reply Dispatcher::runInTransaction(Db &db, Run &run, Call &call)
{
    Exchange &exchange = *run.exchange;
    Reply reply = Reply::ok();
    bool touchDue = false;
    {
        Transaction transaction(db, run.kind());
        if (const auto refusal = admit(db, exchange, call, touchDue)) {
            if (touchDue)
                touchLater(exchange.sessionId); // a refused request was a request
            return *refusal;
        }
        if (KVX_FAIL_POINT("session known: " + exchange.request->service()))
            throw DbError(DbError::Kind::Other, "disk I/O error");
        if (run.continuation)
            reply = run.continuation(call);
        else if (run.step == Step::BeforeUpload)
            reply = exchange.service->beforeUpload(call);
        else
            reply = exchange.service->handler(call);
        const bool kept = reply.isOk() || call.m_keepChanges;
        if (run.writes() && kept && touchDue) {
            touchSession(db, m_environment.config, call.now(), exchange.sessionId);
            touchDue = false;
        }
        if (kept)
            transaction.commit();
        if (run.writes() && kept && KVX_FAIL_POINT("committed: " + exchange.request->service()))
            throw DbError(DbError::Kind::Other, "disk I/O error");
        if (call.m_caller)
            exchange.userEmail = call.m_caller->email;
        if (!kept) {
            call.m_announced = false;
            call.m_sessionsChanged = false;
            call.m_wakes.clear();
        }
    }
    if (call.m_announced)
        m_told.announced();
    if (call.m_sessionsChanged)
        m_told.sessionsChanged();
    for (const std::string &key : call.m_wakes)
        wakeHeld(key);
    if (touchDue)
        touchLater(exchange.sessionId);
    return reply;
}

void Dispatcher::wakeHeld(const std::string &key)
{
    std::vector<DbPool::Job> jobs;
    for (const std::shared_ptr<Run> &run : m_held->take(key))
        jobs.emplace_back([this, run](Db &db) { execute(db, run); });
    m_pool.writeNext(std::move(jobs));
}

WorkPool &Dispatcher::poolOf(const Reply &reply) const
{
    switch (reply.pool()) {
    case Reply::Pool::Hashes:
        return *m_hashers;
    case Reply::Pool::Documents:
        return *m_readers;
    case Reply::Pool::Files:
        break;
    }
    return *m_workers;
}

void Dispatcher::settle(const std::shared_ptr<Run> &run, Reply reply)
{
    const ExchangePtr &exchange = run->exchange;
    if (reply.isHeavy()) {
        run->heavy = true;
        start(run);
        return;
    }
    if (reply.work()) {
        run->lazily = reply.isLazy();
        const bool accepted = poolOf(reply).submit([this, run, work = reply.work()] {
            try {
                run->continuation = work();
                start(run);
            } catch (const std::exception &error) {
                logLine(LogLevel::Error, "request failed",
                    { { "id", run->exchange->requestId }, { "cause", error.what() } });
                finish(run->exchange, run->done, Reply::refused(StatusCode::Failed));
            }
        });
        if (accepted)
            return;
        run->continuation = reply.otherwise();
        if (run->continuation)
            start(run);
        else
            finish(exchange, run->done, busy(503));
        return;
    }
    if (!reply.heldKey().empty() && exchange->patienceOver) {
        finish(exchange, run->done, busy(503)); // it had to answer and did not
        return;
    }
    if (!reply.heldKey().empty()) {
        if (exchange->heldNumber == 0)
            exchange->heldNumber = m_held->takeNumber();
        exchange->holdEnd = exchange->firstAsked + reply.patience();
        const Time wait = std::min(reply.patience(), reply.recheck().value_or(reply.patience()));
        const Time left = exchange->firstAsked + wait - m_environment.clock.now();
        const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(left);
        m_held->hold(reply.heldKey(), reply.place(), exchange->heldNumber, until, run);
        return;
    }
    finish(exchange, run->done, std::move(reply));
}

void Dispatcher::finish(const ExchangePtr &exchange, const Completion &done, Reply reply)
{
    const ServiceRule rules = exchange->rules;
    if (exchange->request && KVX_FAIL_POINT("answering: " + exchange->request->service()))
        reply = Reply::refused(StatusCode::Failed);
    if (hasRule(rules, ListsItems) && !reply.isOk() && !reply.has("CheckoutInfo"))
        reply.setJson("CheckoutInfo", "[]");
    if (hasRule(rules, RepeatsSentence))
        reply.repeatSentence();
    if (reply.httpStatus() == 0) {
        int status = reply.status() == StatusCode::Failed ? 500 : 200;
        if (hasRule(rules, JudgedByHttp))
            status = judgedStatus(reply.status());
        reply.setHttpStatus(status);
    }
    reply.render(exchange->requestId);
    const bool goesOn = exchange->multipart && !exchange->file && reply.isOk();
    if (!goesOn)
        logReply(exchange, reply);
    done(std::move(reply));
}

void Dispatcher::reject(const ExchangePtr &exchange, Reply &reply)
{
    if (exchange->requestId.empty()) {
        exchange->requestId = newRequestId();
        exchange->firstAsked = m_environment.clock.now();
    }
    reply.render(exchange->requestId);
    logReply(exchange, reply);
}

void Dispatcher::findLiveSession(const std::string &token, std::function<void(bool)> answer)
{
    if (token.empty()) {
        answer(false);
        return;
    }
    m_pool.read([this, token, answer = std::move(answer)](Db &db) {
        bool live = true;
        try {
            live = findSession(db, m_environment.config, m_environment.clock.now(), token)
                       .has_value();
        } catch (const DbError &) {
            // The request itself will say what is wrong.
        }
        answer(live);
    });
}

void Dispatcher::logReply(const ExchangePtr &exchange, const Reply &reply)
{
    const std::int64_t bytes = reply.fileBody() ? reply.fileBody()->size
                                                : static_cast<std::int64_t>(reply.body().size());
    LogFields fields { { "id", exchange->requestId },
        { "user", exchange->userEmail.empty() ? "-" : exchange->userEmail },
        { "service", exchange->request ? exchange->request->service() : "-" },
        { "project", exchange->projectGuid.empty() ? "-" : exchange->projectGuid },
        { "status", std::to_string(static_cast<int>(reply.status())) },
        { "ms", std::to_string(m_environment.clock.now() - exchange->firstAsked) },
        { "bytes", std::to_string(bytes) } };
    if (reply.httpStatus() != 200)
        fields.emplace_back("http", std::to_string(reply.httpStatus()));
    logLine(LogLevel::Info, "request", fields);
}

} // namespace kvx::server
