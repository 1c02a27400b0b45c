#include "services/Login.h"
#include "base/Config.h"
#include "base/Log.h"
#include "base/Text.h"
#include "services/Password.h"
#include "store/Db.h"
#include "store/ThrottleStore.h"
#include "store/UserStore.h"

#include <FailPoint.h>
#include <algorithm>
#include <sodium.h>

namespace kvx::server {

namespace {

/// What a login asks for, read once and carried through its three steps: count the try, hash,
/// judge.
struct LoginRequest {
    std::string email;
    std::string password;
    std::string version;
    std::string fingerPrint;
    std::string apiVersion;
    std::string product;
};

LoginRequest loginRequest(const Request &request)
{
    return { canonicalEmail(request.text("Email", 254)), request.text("Password", 1024),
        request.text("Version", 256), request.text("FingerPrint", 256),
        request.text("serverApiVersion", 256), request.text("productType", 256) };
}

Reply wrongPassword(Call &call, const LoginRequest &login, int left)
{
    call.keepChanges();
    if (left == 0)
        logLine(LogLevel::Warning, "log-in locked",
            { { "user", login.email }, { "address", call.address() } });
    call.audit(
        static_cast<int>(StatusCode::LoginRefused), login.email, "left=" + std::to_string(left));
    return Reply::refused(StatusCode::LoginRefused, { std::to_string(left) })
        .set("leftcount", left);
}

std::string newToken()
{
    unsigned char bytes[32];
    randombytes_buf(bytes, sizeof bytes);
    return base64Url(bytes, sizeof bytes);
}

bool isApiServed(const Config &config, const std::string &version)
{
    if (version.empty())
        return true;
    const std::string major = version.substr(0, version.find('.'));
    return major == std::to_string(config.loginMinApi);
}

/// The live session whose cookie came with the login, whose ever it is.
std::optional<std::int64_t> presentedSession(Call &call)
{
    const auto session = findSession(call.db(), call.config(), call.now(), call.token());
    return session ? std::optional(session->id) : std::nullopt;
}

std::optional<Reply> refusedAccount(Call &call, const User &user, const LoginRequest &login)
{
    const Config &config = call.config();
    if (user.disabled)
        return Reply::refused(StatusCode::AccountDisabled);
    if (!isApiServed(config, login.apiVersion))
        return Reply::refused(StatusCode::ClientTooOld, { std::to_string(config.loginMinApi) });
    const auto &products = config.loginProducts;
    if (!products.empty()
        && std::find(products.begin(), products.end(), login.product) == products.end())
        return Reply::refused(StatusCode::ProductNotAllowed, { login.product });
    // A refusal ends no session, so whether there will be room is judged before any is ended.
    const auto presented = presentedSession(call);
    if (countSessionsAtWork(call.db(), config, call.now(), user.id, presented.value_or(0))
        >= config.sessionPerUser)
        return Reply::refused(StatusCode::TooManySessions);
    return std::nullopt;
}

/// Makes room for one more session of the user; those that publish a save are fewer than allowed.
void makeRoom(Call &call, std::int64_t userId)
{
    const Config &config = call.config();
    while (countLiveSessions(call.db(), config, call.now(), userId) >= config.sessionPerUser)
        call.endSession(longestIdleSession(call.db(), userId).value());
}

Reply openSession(Call &call, const User &user, const LoginRequest &login)
{
    const Config &config = call.config();
    if (const auto presented = presentedSession(call))
        call.endSession(*presented);
    makeRoom(call, user.id);

    NewSession session { user.id, newToken(), login.fingerPrint, call.address(), login.version,
        login.product };
    const std::int64_t sessionId = addSession(call.db(), config, call.now(), session);
    call.noteSessions();
    noteLogin(call.db(), user.id, call.now());

    const auto role = firstRoleOf(call.db(), user.id);
    call.actAs({ user.id, user.email, user.name, sessionId, login.fingerPrint, role.has_value(),
        role ? role->rights : RoleRights {} });
    call.audit(static_cast<int>(StatusCode::Ok), user.email, login.fingerPrint);
    return Reply::ok()
        .set("Name", user.name)
        .set("Email", user.email)
        .set("UserProductVersion", user.productVersion)
        .setJson("Role", role ? roleJson(*role, rolesRevision(call.db()), false) : "{}")
        .set("companyAccount", config.companyAccount)
        .set("BrokerPort", std::to_string(config.brokerPublicPort))
        .set("KeepActive", std::max<std::int64_t>(1, config.sessionPresence / 5000))
        .setCookie(std::move(session.token));
}

Reply busy(Call &call)
{
    call.keepChanges();
    return Reply::refused(StatusCode::Busy).setHttpStatus(503);
}

std::string loginKey(const std::string &address)
{
    return "login " + address;
}

/// Others from that address are being looked at and could use up its tries: a whole company that
/// logs in at one moment is served one after the other.
Reply waitForOthers(Call &call)
{
    return call.patienceOver() ? busy(call)
                               : Reply::held(loginKey(call.address()), call.config().lockHold);
}

Reply judgeLogin(Call &call, const LoginRequest &login, const LoginTry &counted, bool right,
    const std::string &rehashed)
{
    call.wakeHeld(loginKey(call.address()));
    const auto user = findUser(call.db(), login.email);
    if (!right || !user) {
        judgeWrong(call.db(), counted.row);
        return wrongPassword(call, login, counted.left);
    }
    // A right password is no failure, whatever else may refuse the login.
    call.keepChanges();
    forgetFailures(call.db(), login.email, call.address());
    if (auto refusal = refusedAccount(call, *user, login)) {
        call.audit(static_cast<int>(refusal->status()), login.email);
        return *refusal;
    }
    if (!rehashed.empty())
        setPassword(call.db(), user->id, rehashed);
    return openSession(call, *user, login);
}

Reply login(Call &call)
{
    LoginRequest login = loginRequest(call.request());
    const auto counted = beginLoginTry(call.db(), call.now(), login.email, call.address());
    if (!counted)
        return wrongPassword(call, login, 0);
    if (counted->mustWait)
        return waitForOthers(call);
    const auto user = findUser(call.db(), login.email);
    const std::string hash = user ? user->password : dummyHash();
    return Reply::after(
        [login = std::move(login), hash, counted = *counted]() -> Reply::Continuation {
            if (KVX_FAIL_POINT("login/password looked at"))
                throw std::runtime_error("no memory to hash a password");
            const bool right = verifyPassword(hash, login.password);
            std::string rehashed = right && needsRehash(hash) ? hashPassword(login.password) : "";
            return [login, counted, right, rehashed](
                       Call &later) { return judgeLogin(later, login, counted, right, rehashed); };
        },
        Reply::Pool::Hashes)
        .setOtherwise([row = counted->row](Call &later) {
            takeBackTry(later.db(), row);
            later.wakeHeld(loginKey(later.address()));
            return busy(later);
        });
}

/// A client whose session has run out must still be able to log out.
Reply logout(Call &call)
{
    Reply done = Reply::ok().setCookie({});
    if (!call.hasCaller())
        return done;
    if (canonicalEmail(call.request().text("Email", 1000)) != call.caller().email)
        return Reply::refused(StatusCode::WrongIdentity);
    call.audit(static_cast<int>(StatusCode::Ok), call.caller().email);
    call.endSession(call.caller().sessionId);
    if (KVX_FAIL_POINT("logout/tidied"))
        throw DbError(DbError::Kind::Other, "disk I/O error");
    return done;
}

Reply keepActive(Call &call)
{
    return Reply::ok().set("Epoch", call.environment().epoch);
}

} // namespace

const ServiceTable loginServices = {
    { "login", login, Anonymous | Writes | InMaintenance },
    { "logout", logout, Anonymous | Writes | InMaintenance },
    { "keepactive", keepActive, NeedsUser | NamesCaller | Light },
};

} // namespace kvx::server
