#include "services/Request.h"
#include "base/Text.h"

#include <algorithm>
#include <cmath>
#include <rapidjson/error/en.h>
#include <rapidjson/reader.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace kvx::server {

namespace {

constexpr int maximumDepth = 64;
constexpr std::size_t maximumElements = 10'000;

std::string_view view(const Json &text)
{
    return { text.GetString(), text.GetStringLength() };
}

bool isUnboundedKey(std::string_view key)
{
    return key == "Roles" || key == "Projects" || key == "Table";
}

void checkNames(const Json &object)
{
    std::vector<std::string_view> names;
    names.reserve(object.MemberCount());
    for (const auto &member : object.GetObject())
        names.push_back(view(member.name));
    std::sort(names.begin(), names.end());
    const auto twice = std::adjacent_find(names.begin(), names.end());
    if (twice != names.end())
        throw BadRequest("the key \"" + std::string(*twice).substr(0, 100) + "\" stands twice");
}

void checkShape(const Json &value, int depth, bool bounded)
{
    if (depth > maximumDepth && (value.IsObject() || value.IsArray()))
        throw BadRequest("it is nested too deeply");
    if (value.IsObject()) {
        checkNames(value);
        for (const auto &member : value.GetObject())
            checkShape(member.value, depth + 1, bounded && !isUnboundedKey(view(member.name)));
    } else if (value.IsArray()) {
        if (bounded && value.Size() > maximumElements)
            throw BadRequest("an array has more than 10,000 elements");
        for (const Json &element : value.GetArray())
            checkShape(element, depth + 1, bounded);
    }
}

} // namespace

const Json *JsonObject::find(const char *key) const
{
    const auto member = m_object->FindMember(key);
    return member == m_object->MemberEnd() ? nullptr : &member->value;
}

bool JsonObject::has(const char *key) const
{
    return find(key) != nullptr;
}

void JsonObject::refuse(const char *key, const std::string &what) const
{
    throw BadRequest("\"" + m_path + key + "\" " + what);
}

const Json &JsonObject::value(const char *key) const
{
    const Json *found = find(key);
    if (!found)
        refuse(key, "is missing");
    return *found;
}

std::string JsonObject::text(const char *key, std::size_t maximumBytes) const
{
    const Json &found = value(key);
    if (!found.IsString())
        refuse(key, "must be a text");
    if (found.GetStringLength() > maximumBytes)
        refuse(key, "is too long");
    return std::string(view(found));
}

std::string JsonObject::text(
    const char *key, const std::string &absent, std::size_t maximumBytes) const
{
    return has(key) ? text(key, maximumBytes) : absent;
}

std::int64_t JsonObject::integer(const char *key, std::int64_t minimum, std::int64_t maximum) const
{
    const Json &found = value(key);
    if (!found.IsNumber())
        refuse(key, "must be a number");
    std::int64_t number = 0;
    bool fits = true;
    if (found.IsInt64()) {
        number = found.GetInt64();
    } else {
        const double real = found.GetDouble();
        if (!std::isfinite(real) || std::floor(real) != real)
            refuse(key, "must be a whole number");
        fits = std::fabs(real) < 9.0e15;
        number = fits ? static_cast<std::int64_t>(real) : 0;
    }
    if (!fits || number < minimum || number > maximum)
        refuse(
            key, "must lie between " + std::to_string(minimum) + " and " + std::to_string(maximum));
    return number;
}

std::optional<std::int64_t> JsonObject::optionalInteger(
    const char *key, std::int64_t minimum, std::int64_t maximum) const
{
    return has(key) ? std::optional(integer(key, minimum, maximum)) : std::nullopt;
}

bool JsonObject::flag(const char *key) const
{
    const Json &found = value(key);
    if (!found.IsBool())
        refuse(key, "must be true or false");
    return found.GetBool();
}

std::string JsonObject::guid(const char *key) const
{
    std::string found = text(key);
    if (!isGuid(found))
        refuse(key, "must be a GUID in braces");
    return found;
}

JsonObject JsonObject::object(const char *key) const
{
    const Json &found = value(key);
    if (!found.IsObject())
        refuse(key, "must be an object");
    return JsonObject(found, m_path + key + ".");
}

std::vector<JsonObject> JsonObject::objects(const char *key, std::size_t maximum) const
{
    const Json &found = value(key);
    if (!found.IsArray())
        refuse(key, "must be an array");
    if (found.Size() > maximum)
        refuse(key, "has more than " + std::to_string(maximum) + " elements");
    std::vector<JsonObject> elements;
    elements.reserve(found.Size());
    for (const Json &element : found.GetArray()) {
        const std::string name = key + ("[" + std::to_string(elements.size()) + "]");
        if (!element.IsObject())
            refuse(name.c_str(), "must be an object");
        elements.emplace_back(element, m_path + name + ".");
    }
    return elements;
}

std::vector<std::string> JsonObject::texts(const char *key, std::size_t maximum) const
{
    const Json &found = value(key);
    if (!found.IsArray())
        refuse(key, "must be an array");
    if (found.Size() > maximum)
        refuse(key, "has more than " + std::to_string(maximum) + " elements");
    std::vector<std::string> elements;
    for (const Json &element : found.GetArray()) {
        if (!element.IsString())
            refuse((key + ("[" + std::to_string(elements.size()) + "]")).c_str(), "must be a text");
        elements.emplace_back(view(element));
    }
    return elements;
}

Request::Request(std::unique_ptr<rapidjson::Document> document, std::string service)
    : JsonObject(*document, {})
    , m_document(std::move(document))
    , m_service(std::move(service))
{
}

std::shared_ptr<const Request> Request::parse(const std::string &text, const std::string &service)
{
    // The iterative parser: nesting costs heap within the size limit, never stack.
    constexpr unsigned flags = rapidjson::kParseIterativeFlag
        | rapidjson::kParseValidateEncodingFlag | rapidjson::kParseFullPrecisionFlag;
    auto document = std::make_unique<rapidjson::Document>();
    if (text.empty() && !service.empty()) {
        document->SetObject();
    } else {
        document->Parse<flags>(text.data(), text.size());
        if (document->HasParseError()) {
            throw BadRequest(
                "it is not JSON: " + std::string(GetParseError_En(document->GetParseError()))
                + " (at " + std::to_string(document->GetErrorOffset()) + ")");
        }
    }
    if (!document->IsObject())
        throw BadRequest("it is not a JSON object");
    checkShape(*document, 1, true);

    std::string name = service;
    if (name.empty())
        name = JsonObject(*document, {}).text("service", 100);
    return std::shared_ptr<const Request>(new Request(std::move(document), std::move(name)));
}

namespace {

/// Stops the reader at the text under the outermost "service".
class ServiceFinder : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, ServiceFinder> {
public:
    bool Default() { return isElsewhere(); }
    bool StartObject() { return isElsewhere() && ++m_depth > 0; }
    bool EndObject(rapidjson::SizeType) { return --m_depth >= 0; }
    bool StartArray() { return isElsewhere() && ++m_depth > 0; }
    bool EndArray(rapidjson::SizeType) { return --m_depth >= 0; }
    bool Key(const char *text, rapidjson::SizeType length, bool)
    {
        m_isNext = m_depth == 1 && std::string_view(text, length) == "service";
        return true;
    }
    bool String(const char *text, rapidjson::SizeType length, bool)
    {
        if (m_isNext)
            name.assign(text, length);
        return isElsewhere();
    }

    std::string name;

private:
    bool isElsewhere() const { return !m_isNext; }

    int m_depth = 0;
    bool m_isNext = false;
};

} // namespace

std::string serviceNamedIn(const std::string &text)
{
    ServiceFinder finder;
    rapidjson::MemoryStream stream(text.data(), text.size());
    rapidjson::Reader().Parse<rapidjson::kParseIterativeFlag>(stream, finder);
    return finder.name;
}

std::string compactJson(const Json &value)
{
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    value.Accept(writer);
    return { buffer.GetString(), buffer.GetSize() };
}

} // namespace kvx::server
