#pragma once

#include <iosfwd>
#include <memory>
#include <rapidjson/document.h>
#include <string>
#include <vector>

namespace kvx::test {

/// One recorded exchange of a contract file; docs/testing.md describes the keys.
struct Exchange {
    std::string service;
    std::string title;
    std::shared_ptr<const rapidjson::Document> file; ///< keeps `json` alive
    const rapidjson::Value *json = nullptr;

    bool has(const char *key) const { return json->HasMember(key); }
    /// Throws std::runtime_error where the key is missing.
    const rapidjson::Value &operator[](const char *key) const;
    /// The title as a test's name: "AReaderIsRefused".
    std::string testName() const;
    std::string fullTestName() const; ///< with the service's name before it
    /// Where the request is sent: "/kvx/service" unless the exchange says.
    std::string path() const;
    /// Of the reply: 200 unless the exchange says. Any other fails a client's exchange.
    int httpStatus() const;
};

/// For the messages of the test framework.
void PrintTo(const Exchange &exchange, std::ostream *stream);

/// The services that have a file here, in alphabetical order. One that its path names stands in a
/// folder: "comresource/version".
std::vector<std::string> contractServices();

/// All exchanges of a service, or of every service. Throws std::runtime_error when a file is no
/// list of exchanges or an exchange has a key that nobody reads.
std::vector<Exchange> exchangesOf(const std::string &service);
std::vector<Exchange> allExchanges();

/// What differs, a line each; empty when nothing does. Keys, JSON types and values must be equal,
/// the order of keys does not count. A text "<text>", "<date>", "<timestamp>", "<integer>",
/// "<digest>" or "<id>" in the expected value stands for any value of that kind.
std::vector<std::string> differences(
    const rapidjson::Value &expected, const rapidjson::Value &actual);

/// The value with something definite in place of each placeholder.
std::string filledJson(const rapidjson::Value &value);

std::string compactJson(const rapidjson::Value &value);
rapidjson::Document parsedJson(const std::string &text);
std::string textOf(const rapidjson::Value &value);

} // namespace kvx::test
