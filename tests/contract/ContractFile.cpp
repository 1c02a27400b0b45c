#include "ContractFile.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <ostream>
#include <rapidjson/error/en.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <set>
#include <sstream>
#include <stdexcept>

namespace kvx::test {

namespace {

using rapidjson::Value;

/// A misspelt key would silently test less.
const std::set<std::string> exchangeKeys { "title", "state", "caller", "request", "reply",
    "repeated", "file", "arrived", "announces", "call", "path", "http" };
const std::set<std::string> callKeys { "operation", "arguments", "result", "others", "occurrence" };

struct Placeholder {
    std::function<bool(const Value &)> matches;
    const char *sample; ///< JSON
};

bool hasShape(const Value &value, const std::string &shape)
{
    if (!value.IsString() || value.GetStringLength() != shape.size())
        return false;
    return std::equal(shape.begin(), shape.end(), value.GetString(), [](char wanted, char found) {
        return wanted == '9' ? std::isdigit(static_cast<unsigned char>(found)) != 0
                             : wanted == found;
    });
}

bool isHexDigits(const Value &value, std::size_t length)
{
    const std::string text = value.IsString() ? textOf(value) : std::string();
    return text.size() == length && text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

const Placeholder *placeholder(const Value &expected)
{
    static const std::map<std::string, Placeholder> placeholders {
        { "<text>", { [](const Value &value) { return value.IsString(); }, "\"some text\"" } },
        { "<date>",
            { [](const Value &value) { return hasShape(value, "9999-99-99 99:99"); },
                "\"2026-11-21 14:05\"" } },
        { "<timestamp>",
            { [](const Value &value) { return hasShape(value, "9999-99-99 99:99:99"); },
                "\"2026-11-21 14:05:07\"" } },
        { "<integer>", { [](const Value &value) { return value.IsInt64(); }, "7" } },
        { "<digest>",
            { [](const Value &value) { return isHexDigits(value, 64); },
                "\"5feceb66ffc86f38d952786c6d696c79c2dbc239dd4e91b46729d73a27fb57e9\"" } },
        { "<id>",
            { [](const Value &value) { return value.IsString() && value.GetStringLength() > 0; },
                "\"0f1e2d3c4b5a6978\"" } },
    };
    if (!expected.IsString() || expected.GetStringLength() == 0 || *expected.GetString() != '<')
        return nullptr;
    const auto found = placeholders.find(textOf(expected));
    if (found == placeholders.end())
        throw std::runtime_error("there is no placeholder " + textOf(expected));
    return &found->second;
}

/// What a client in another language would call the value's type.
std::string typeOf(const Value &value)
{
    if (value.IsNumber())
        return value.IsInt64() ? "integer" : "number";
    static const char *const names[] = { "null", "flag", "flag", "object", "array", "text" };
    return names[value.GetType()];
}

void compare(const Value &expected, const Value &actual, const std::string &path,
    std::vector<std::string> &lines)
{
    const std::string place = path.empty() ? "the whole" : path;
    if (const Placeholder *any = placeholder(expected)) {
        if (!any->matches(actual))
            lines.push_back(
                place + ": expected " + textOf(expected) + ", found " + compactJson(actual));
        return;
    }
    if (typeOf(expected) != typeOf(actual)) {
        lines.push_back(place + ": expected the " + typeOf(expected) + ' ' + compactJson(expected)
            + ", found the " + typeOf(actual) + ' ' + compactJson(actual));
    } else if (expected.IsObject()) {
        for (const auto &member : expected.GetObject()) {
            const std::string key = path + '/' + textOf(member.name);
            const auto found = actual.FindMember(member.name);
            if (found == actual.MemberEnd())
                lines.push_back(key + ": is missing, expected " + compactJson(member.value));
            else
                compare(member.value, found->value, key, lines);
        }
        for (const auto &member : actual.GetObject()) {
            if (!expected.HasMember(member.name))
                lines.push_back(path + '/' + textOf(member.name)
                    + ": is not in the contract, found " + compactJson(member.value));
        }
    } else if (expected.IsArray()) {
        if (expected.Size() != actual.Size())
            lines.push_back(place + ": expected " + std::to_string(expected.Size())
                + " elements, found " + compactJson(actual));
        for (rapidjson::SizeType i = 0; i < std::min(expected.Size(), actual.Size()); ++i)
            compare(expected[i], actual[i], path + '/' + std::to_string(i), lines);
    } else if (expected != actual) {
        lines.push_back(
            place + ": expected " + compactJson(expected) + ", found " + compactJson(actual));
    }
}

void fill(Value &value, rapidjson::Document &owner)
{
    if (const Placeholder *any = placeholder(value)) {
        value.CopyFrom(parsedJson(any->sample), owner.GetAllocator());
    } else if (value.IsObject()) {
        for (auto &member : value.GetObject())
            fill(member.value, owner);
    } else if (value.IsArray()) {
        for (auto &element : value.GetArray())
            fill(element, owner);
    }
}

/// By the request, or by its path.
bool isAskedFor(const Exchange &exchange)
{
    const Value &request = exchange["request"];
    const std::string end = '/' + exchange.service;
    const std::string path = exchange.path();
    return (request.HasMember("service") && textOf(request["service"]) == exchange.service)
        || (path.size() > end.size()
            && path.compare(path.size() - end.size(), end.size(), end) == 0);
}

void checkKeys(const Value &object, const std::set<std::string> &known, const std::string &where)
{
    if (!object.IsObject())
        throw std::runtime_error(where + " is no object");
    for (const auto &member : object.GetObject()) {
        if (known.count(textOf(member.name)) == 0)
            throw std::runtime_error(where + " has the unknown key \"" + textOf(member.name) + '"');
    }
}

} // namespace

const Value &Exchange::operator[](const char *key) const
{
    const auto member = json->FindMember(key);
    if (member == json->MemberEnd())
        throw std::runtime_error(service + ", \"" + title + "\": \"" + key + "\" is missing");
    return member->value;
}

std::string Exchange::testName() const
{
    std::string name;
    bool begins = true;
    for (const char c : title) {
        const auto byte = static_cast<unsigned char>(c);
        if (std::isalnum(byte))
            name += begins ? static_cast<char>(std::toupper(byte)) : c;
        begins = !std::isalnum(byte);
    }
    return name;
}

std::string Exchange::fullTestName() const
{
    std::string name = service;
    name.erase(std::remove(name.begin(), name.end(), '/'), name.end());
    return name + testName();
}

std::string Exchange::path() const
{
    return has("path") ? textOf((*this)["path"]) : "/kvx/service";
}

int Exchange::httpStatus() const
{
    return has("http") ? (*this)["http"].GetInt() : 200;
}

void PrintTo(const Exchange &exchange, std::ostream *stream)
{
    *stream << exchange.service << ", \"" << exchange.title << '"';
}

std::vector<std::string> contractServices()
{
    const std::filesystem::path folder(KVX_CONTRACT_FOLDER);
    std::vector<std::string> services;
    for (const auto &entry : std::filesystem::recursive_directory_iterator(folder)) {
        if (entry.path().extension() == ".json")
            services.push_back(
                entry.path().lexically_relative(folder).replace_extension().generic_string());
    }
    std::sort(services.begin(), services.end());
    return services;
}

std::vector<Exchange> exchangesOf(const std::string &service)
{
    const std::string path = std::string(KVX_CONTRACT_FOLDER) + '/' + service + ".json";
    std::ifstream stream(path);
    std::stringstream text;
    text << stream.rdbuf();
    const auto file = std::make_shared<rapidjson::Document>(parsedJson(text.str()));
    if (!file->IsArray() || file->Empty())
        throw std::runtime_error(path + " is no list of exchanges");
    std::vector<Exchange> exchanges;
    for (const Value &json : file->GetArray()) {
        const std::string where = service + ", exchange " + std::to_string(exchanges.size() + 1);
        checkKeys(json, exchangeKeys, where);
        Exchange exchange { service, {}, file, &json };
        exchange.title = textOf(exchange["title"]);
        if (!isAskedFor(exchange))
            throw std::runtime_error(where + " asks for another service");
        if (exchange.has("call"))
            checkKeys(exchange["call"], callKeys, where + ", \"call\"");
        exchanges.push_back(exchange);
    }
    return exchanges;
}

std::vector<Exchange> allExchanges()
{
    std::vector<Exchange> all;
    for (const std::string &service : contractServices()) {
        const std::vector<Exchange> exchanges = exchangesOf(service);
        all.insert(all.end(), exchanges.begin(), exchanges.end());
    }
    return all;
}

std::vector<std::string> differences(const Value &expected, const Value &actual)
{
    std::vector<std::string> lines;
    compare(expected, actual, {}, lines);
    return lines;
}

std::string filledJson(const Value &value)
{
    rapidjson::Document copy;
    copy.CopyFrom(value, copy.GetAllocator());
    fill(copy, copy);
    return compactJson(copy);
}

std::string compactJson(const Value &value)
{
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    value.Accept(writer);
    return { buffer.GetString(), buffer.GetSize() };
}

rapidjson::Document parsedJson(const std::string &text)
{
    rapidjson::Document document;
    document.Parse(text.data(), text.size());
    if (document.HasParseError())
        throw std::runtime_error(std::string(rapidjson::GetParseError_En(document.GetParseError()))
            + " at " + std::to_string(document.GetErrorOffset()) + " of " + text.substr(0, 200));
    return document;
}

std::string textOf(const Value &value)
{
    if (!value.IsString())
        throw std::runtime_error(compactJson(value) + " is no text");
    return { value.GetString(), value.GetStringLength() };
}

} // namespace kvx::test
