#pragma once

#include "AccessPeople.h"
#include "ServiceHarness.h"

#include <functional>
#include <string>
#include <vector>

namespace kvx::test {

struct Outcome {
    int status = 1;
    bool mayChange = true; ///< false: nothing may change although the answer is 1
};

class World;

/// One kind of request and what must become of it.
struct Expectation {
    std::string service;
    std::string variant; ///< where a service has several rows
    /// The key that must name the caller; empty where the service has none.
    std::string identity;
    /// The rest of the request, without that key.
    std::function<Message(const World &, Caller, Object)> request;
    /// For callers with a session; the others get 2 unless `anonymous` says otherwise.
    std::function<Outcome(const Person &, Object)> withSession;
    std::function<Outcome(Object)> anonymous;
    /// Set for an upload.
    std::string file;

    Outcome outcome(const Person &who, Object object) const;
};

/// All rows; written from what is promised to users, not from the server's tables.
const std::vector<Expectation> &accessModel();

} // namespace kvx::test
