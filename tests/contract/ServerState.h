#pragma once

#include "ContractFile.h"
#include "ServiceHarness.h"

#include <map>
#include <string>

namespace kvx::test {

/// The server of one exchange: its users, and what the exchange's "state" says has happened.
///
/// The cast is always there: "anna" (Anna Weiss, anna@example.com) and "ben" (Ben Ito) have the
/// role "Estimator", "carla" (Carla Ruiz) is an administrator, "dana" (Dana Cole) has no role. A
/// second session of somebody, on another device, is "anna elsewhere".
class ServerState {
public:
    ServerState();

    /// One step: its name and arguments. Throws std::runtime_error when it is not known or refused.
    void bring(const rapidjson::Value &step);

    /// Logs in when the user has not yet; empty for "nobody".
    std::string tokenOf(const std::string &who);

    /// Sends the request, letter by letter, to that path as that user; with `file` as an upload of
    /// those bytes. A path that names the service itself is asked without a body.
    server::Reply post(const std::string &who, const std::string &path, const std::string &request,
        const std::string *file);

    ServiceHarness &harness() { return m_harness; }

private:
    Session &session(const std::string &who);
    void ask(const std::string &who, const Message &message);
    std::string storedBlob(const std::string &bytes);
    void addTemplate(const std::string &who, const std::string &id, const std::string &name);
    void endPage(const std::string &job, int page, bool ok, const std::string &text);

    ServiceHarness m_harness;
    std::map<std::string, Session> m_sessions;
};

/// The bytes of a "file": {"content"} as they stand, or a change log's archive {"entry",
/// "content"}.
std::string bytesOf(const rapidjson::Value &file);

} // namespace kvx::test
