#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <rapidjson/document.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace kvx::server {

using Json = rapidjson::Value;

/// The request is not valid; the text is the argument of status 100 and names the key.
/// Handlers let it pass; the dispatcher answers.
class BadRequest : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The keys of one JSON object of a request, read strictly: a key that is missing or of another
/// type throws BadRequest naming it. Borrows the request's document.
class JsonObject {
public:
    /// `path` stands before the keys in error texts: "userperms[3].".
    JsonObject(const Json &object, std::string path)
        : m_object(&object)
        , m_path(std::move(path))
    {
    }

    bool has(const char *key) const;

    /// Text of at most `maximumBytes`.
    std::string text(const char *key, std::size_t maximumBytes = noLimit) const;
    /// As `text`; `absent` where the key is missing.
    std::string text(
        const char *key, const std::string &absent, std::size_t maximumBytes = noLimit) const;
    /// A whole number of at least `minimum` and at most `maximum`; 5.0 is whole, 5.5 is refused.
    std::int64_t integer(const char *key, std::int64_t minimum, std::int64_t maximum) const;
    std::optional<std::int64_t> optionalInteger(
        const char *key, std::int64_t minimum, std::int64_t maximum) const;
    bool flag(const char *key) const;
    /// A GUID in braces, as sent.
    std::string guid(const char *key) const;

    JsonObject object(const char *key) const;
    std::vector<JsonObject> objects(const char *key, std::size_t maximum = noLimit) const;
    std::vector<std::string> texts(const char *key, std::size_t maximum = noLimit) const;

    /// Throws BadRequest: the key, with the path to it, and what is wrong.
    [[noreturn]] void refuse(const char *key, const std::string &what) const;

    /// The value as it is, or null where the key is missing.
    const Json *find(const char *key) const;
    const Json &json() const { return *m_object; }

    static constexpr std::size_t noLimit = static_cast<std::size_t>(-1);

private:
    const Json &value(const char *key) const;

    const Json *m_object;
    std::string m_path;
};

/// A service request: one JSON object with a text "service" in it.
class Request : public JsonObject {
public:
    /// Parses and checks the envelope: UTF-8, one object, no duplicate key, depth at most 64,
    /// arrays of at most 10,000 elements ("Roles", "Projects" and tables excepted). Throws
    /// BadRequest. `service` is the name where the path itself names the service; an empty text is
    /// then a request without keys.
    static std::shared_ptr<const Request> parse(
        const std::string &text, const std::string &service = {});

    const std::string &service() const { return m_service; }

private:
    Request(std::unique_ptr<rapidjson::Document> document, std::string service);

    std::unique_ptr<rapidjson::Document> m_document;
    std::string m_service;
};

/// The text under "service" of a request that is not parsed yet; empty where there is none. Takes
/// no memory whatever else the request holds: a few megabytes of empty arrays are a gigabyte
/// parsed.
std::string serviceNamedIn(const std::string &text);

/// The value as compact JSON text, keys in the order sent.
std::string compactJson(const Json &value);

} // namespace kvx::server
