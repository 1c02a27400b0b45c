#pragma once

#include "base/Clock.h"
#include "base/JsonText.h"
#include "services/StatusCode.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kvx::server {

class Call;

/// The file that is the body of a download.
struct FileBody {
    std::string path;
    std::int64_t size = 0;
    std::string sha256;
};

/// What a handler answers: a status with its members, a file, or "not yet".
///
///     return Reply::ok().set("LogVersion", version).setJson("Project", record);
///     return Reply::refused(StatusCode::NameTaken, {name});
class Reply {
public:
    static Reply ok() { return Reply(StatusCode::Ok, {}); }
    /// `arguments` fill %1 and %2 of the code's sentence.
    static Reply refused(StatusCode code, std::vector<std::string> arguments = {})
    {
        return Reply(code, std::move(arguments));
    }
    /// A download that succeeds. The members set go into the header "Kvx-Reply".
    static Reply file(FileBody body);

    /// Nothing to say yet. The transaction is committed, no thread and no connection to the
    /// database is kept, and the handler is called again, from the beginning, as soon as somebody
    /// calls `Call::wakeHeld(key)`; requests held under one key run again in the order in which
    /// they first asked, before any request that came meanwhile. After `patience` milliseconds
    /// since the first call it is called once more with `Call::patienceOver()` true, and must
    /// answer. `place` comes before that order: a request with a lower one runs earlier. After
    /// `recheck` milliseconds since the first call, where given, it is called in between, as if
    /// woken.
    static Reply held(std::string key, std::int64_t patience, std::uint64_t place = 0,
        std::optional<std::int64_t> recheck = {});

    /// More than a light service may do on the thread that asks: the handler is called again, from
    /// the beginning, on a thread that may take its time.
    static Reply heavy();
    bool isHeavy() const { return m_heavy; }

    /// Work that takes long and needs no database (a password hash, looking into an archive). It
    /// runs on a pool of its own; what it returns is then called as the handler, in a new
    /// transaction.
    using Continuation = std::function<Reply(Call &)>;
    using Work = std::function<Continuation()>;
    /// What refuses after such work; `argument` fills %1 of the code's sentence.
    static Continuation refusing(StatusCode code, const std::string &argument = {});
    enum class Pool { Files, Hashes, Documents };
    static Reply after(Work work, Pool pool = Pool::Files);
    /// The continuation's transaction waits for no disk (see WritesLazily).
    Reply &setLazy();
    bool isLazy() const { return m_lazy; }
    /// Called as the handler where the pool takes no more work; else the answer is "busy".
    Reply &setOtherwise(Continuation otherwise)
    {
        m_otherwise = std::move(otherwise);
        return *this;
    }
    const Continuation &otherwise() const { return m_otherwise; }

    Reply &set(const char *key, std::string_view text) { return setJson(key, jsonText(text)); }
    Reply &set(const char *key, const char *text) { return set(key, std::string_view(text)); }
    Reply &set(const char *key, bool flag) { return setJson(key, flag ? "true" : "false"); }
    Reply &set(const char *key, std::int64_t number)
    {
        return setJson(key, std::to_string(number));
    }
    Reply &set(const char *key, int number) { return set(key, std::int64_t { number }); }
    /// A member that is JSON text already.
    Reply &setJson(const char *key, std::string_view json);

    /// The session token for the cookie: a new one, or an empty text to delete it.
    Reply &setCookie(std::string token);
    const std::string *cookie() const { return m_cookie.get(); }

    bool has(const char *key) const;

    StatusCode status() const { return m_status; }
    bool isOk() const { return m_status == StatusCode::Ok; }
    /// What a user may read about a refusal.
    std::string sentence() const { return statusSentence(m_status, m_arguments); }
    const FileBody *fileBody() const { return m_file.get(); }
    const std::string &heldKey() const { return m_heldKey; }
    std::int64_t patience() const { return m_patience; }
    std::uint64_t place() const { return m_place; }
    std::optional<std::int64_t> recheck() const { return m_recheck; }
    const Work &work() const { return m_work; }
    Pool pool() const { return m_pool; }

    /// The HTTP status where it is not what the envelope's rules give; 0 else.
    int httpStatus() const { return m_httpStatus; }
    Reply &setHttpStatus(int status);

    /// The members of a refusal repeat the sentence under the empty key.
    void repeatSentence() { m_repeatSentence = true; }

    /// The whole reply as JSON. A refusal carries "error", "message" and "requestId".
    std::string json(const std::string &requestId) const;

    /// The JSON text as it goes out, kept by the dispatcher when the reply is final.
    void render(const std::string &requestId);
    const std::string &body() const { return m_body; }
    std::string takeBody() { return std::move(m_body); }

private:
    Reply(StatusCode status, std::vector<std::string> arguments)
        : m_status(status)
        , m_arguments(std::move(arguments))
    {
    }

    StatusCode m_status;
    std::vector<std::string> m_arguments;
    std::string m_members;
    std::shared_ptr<FileBody> m_file;
    std::shared_ptr<std::string> m_cookie;
    std::string m_heldKey;
    std::int64_t m_patience = 0;
    std::uint64_t m_place = 0;
    std::optional<std::int64_t> m_recheck;
    Work m_work;
    Pool m_pool = Pool::Files;
    int m_httpStatus = 0;
    bool m_repeatSentence = false;
    bool m_lazy = false;
    bool m_heavy = false;
    Continuation m_otherwise;
    std::string m_body;
};

} // namespace kvx::server
