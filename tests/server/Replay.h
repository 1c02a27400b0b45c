#pragma once

#include "StoreImage.h"

#include "JsonPlaces.h"
#include "ServerState.h"

#include <memory>
#include <string>
#include <vector>

namespace kvx::test {

/// One recorded exchange whose request is asked again and again, changed in some place each time,
/// of a server that is put back to the recorded state in between.
class Replay {
public:
    explicit Replay(const Exchange &exchange);

    rapidjson::Document request() const;
    Answer ask(const rapidjson::Document &request);
    void putBack();
    StoreImage &store() { return *m_store; }
    /// The files below the server's folder, database aside.
    std::vector<std::string> files();

private:
    const Exchange m_exchange;
    std::string m_caller;
    std::unique_ptr<const std::string> m_file;
    ServerState m_state;
    std::unique_ptr<StoreImage> m_store;
};

/// Of every service, exchanges of which each key of its requests is in one; those that succeed
/// first. The recognition services, which have no file, are among them.
std::vector<Exchange> exchangesForReplay();

/// Places in a request as JSON pointers.
std::vector<std::string> textsIn(const rapidjson::Value &request);
std::vector<std::string> objectsIn(const rapidjson::Value &request);
} // namespace kvx::test
