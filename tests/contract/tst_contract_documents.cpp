#include "ContractFile.h"

#include "base/Config.h"
#include "services/ServiceTable.h"
#include "services/StatusCode.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <map>
#include <regex>
#include <set>
#include <sstream>

// What plug-in, server, contract files and documents say about the services is one and the same.

using namespace kvx::test;
using testing::ContainerEq;
using testing::IsEmpty;

namespace fs = std::filesystem;

namespace {

using Names = std::set<std::string>;

/// Services that the plug-in does not send, with the reason.
const std::map<std::string, std::string> onlyOnTheServer {
    { "server", "read by a search for servers: the transport's, on a path of its own" },
    { "languages", "for administrators and hosts: the recognition's client takes any language" },
};

/// What the plug-in asks for by the path alone.
const Names namedByPath { "comresource/version", "comresource/download" };

/// Has no contract file: the path is the whole request.
const Names withoutFile { "server" };

std::string read(const fs::path &path)
{
    std::ifstream stream(fs::path(KVX_SOURCE_DIR) / path);
    if (!stream)
        throw std::runtime_error(path.string() + " cannot be read");
    std::stringstream text;
    text << stream.rdbuf();
    return text.str();
}

Names matches(const std::string &text, const std::string &pattern)
{
    Names names;
    const std::regex regex(pattern);
    for (std::sregex_iterator match(text.begin(), text.end(), regex), end; match != end; ++match)
        names.insert((*match)[1]);
    return names;
}

Names sentByThePlugin()
{
    Names names = namedByPath;
    for (const auto &entry :
        fs::recursive_directory_iterator(fs::path(KVX_SOURCE_DIR) / "plugin")) {
        if (entry.path().extension() != ".cpp")
            continue;
        // ServiceRequest("name") as a value, ServiceRequest request("name") as a variable.
        names.merge(
            matches(read(entry.path()), "ServiceRequest(?:\\s+\\w+)?\\s*[({]\\s*\"([^\"]+)\""));
    }
    // The recognition's client stands beside the managers.
    names.merge(matches(read("runtime/KVXOCRSDK/OcrRun.cpp"),
        "QStringLiteral\\(\"service\"\\), QStringLiteral\\(\"(\\w+)\"\\)"));
    return names;
}

Names servedByTheServer()
{
    Names names;
    for (const auto &endpoint : kvx::server::allEndpoints()) {
        for (const auto *table : endpoint.tables) {
            for (const auto &service : *table)
                names.insert(service.name);
        }
    }
    return names;
}

Names inContractFiles()
{
    const std::vector<std::string> services = contractServices();
    return Names(services.begin(), services.end());
}

Names without(Names names, const Names &others)
{
    for (const std::string &other : others)
        names.erase(other);
    return names;
}

/// The part of a document below that heading, up to the next one of any level.
std::string section(const std::string &document, const std::string &heading)
{
    const auto begin = document.find("\n" + heading + "\n");
    if (begin == std::string::npos)
        throw std::runtime_error("there is no section \"" + heading + '"');
    const auto body = begin + heading.size() + 2;
    const auto end = document.find("\n#", body);
    return document.substr(body, end == std::string::npos ? end : end - body);
}

/// The cells of the table rows below that heading, without the first two lines.
std::vector<std::vector<std::string>> tableRows(
    const std::string &document, const std::string &heading)
{
    std::vector<std::vector<std::string>> rows;
    std::istringstream lines(section(document, heading));
    int number = 0;
    for (std::string line; std::getline(lines, line);) {
        if (line.empty() || line.front() != '|' || ++number <= 2)
            continue;
        std::vector<std::string> cells;
        std::istringstream parts(line.substr(1));
        for (std::string cell; std::getline(parts, cell, '|');) {
            const auto first = cell.find_first_not_of(' ');
            const auto last = cell.find_last_not_of(' ');
            cells.push_back(
                first == std::string::npos ? std::string() : cell.substr(first, last - first + 1));
        }
        rows.push_back(cells);
    }
    return rows;
}

/// Service to the rest of its row in docs/protocol.md.
std::map<std::string, std::string> protocolRows()
{
    std::map<std::string, std::string> rows;
    std::istringstream lines(read("docs/protocol.md"));
    const std::regex row("\\| `([\\w/]+)` \\|(.*)");
    for (std::string line; std::getline(lines, line);) {
        std::smatch match;
        if (std::regex_match(line, match, row)) {
            EXPECT_TRUE(rows.emplace(match[1], match[2]).second) << match[1] << " has two rows";
        }
    }
    return rows;
}

Names documented()
{
    Names names;
    for (const auto &[service, row] : protocolRows())
        names.insert(service);
    return names;
}

} // namespace

TEST(Contract, EveryServiceThatThePluginSendsIsServed)
{
    EXPECT_THAT(without(sentByThePlugin(), servedByTheServer()), IsEmpty());
}

TEST(Contract, EveryServiceThatThePluginSendsHasARecordedCall)
{
    Names recorded;
    for (const Exchange &exchange : allExchanges()) {
        if (exchange.has("call"))
            recorded.insert(exchange.service);
    }
    EXPECT_THAT(recorded, ContainerEq(sentByThePlugin()));
}

TEST(Contract, WhatThePluginDoesNotSendIsListedWithItsReason)
{
    Names listed;
    for (const auto &[service, reason] : onlyOnTheServer)
        listed.insert(service);
    EXPECT_THAT(without(servedByTheServer(), sentByThePlugin()), ContainerEq(listed));
}

TEST(Contract, EveryServedServiceHasAFileAndEveryFileIsServed)
{
    EXPECT_THAT(inContractFiles(), ContainerEq(without(servedByTheServer(), withoutFile)));
}

TEST(Contract, EveryServiceHasASuccessAndARefusal)
{
    for (const std::string &service : contractServices()) {
        int successes = 0;
        int refusals = 0;
        for (const Exchange &exchange : exchangesOf(service))
            ++(exchange["reply"]["statuscode"].GetInt() == 1 ? successes : refusals);
        EXPECT_GT(successes, 0) << service;
        EXPECT_GT(refusals, 0) << service;
    }
}

TEST(ProtocolDocument, HasARowForEachServiceOfTheServer)
{
    EXPECT_THAT(documented(), ContainerEq(servedByTheServer()));
}

TEST(ProtocolDocument, EachRowNamesItsContractFile)
{
    for (const auto &[service, row] : protocolRows()) {
        if (withoutFile.count(service) == 0) {
            EXPECT_NE(row.find("(../tests/contract/" + service + ".json)"), std::string::npos)
                << service;
        }
    }
}

TEST(ProtocolDocument, EachRowNamesTheKeysAndCodesThatWereRecorded)
{
    const Names everywhere { "service", "statuscode", "error", "message", "", "requestId" };
    std::map<std::string, std::string> rows = protocolRows();
    for (const Exchange &exchange : allExchanges()) {
        const std::string row = rows[exchange.service];
        const std::string what = exchange.service + ", \"" + exchange.title + '"';
        // A record that is sent as a whole, and keys that are the caller's own, are told in words.
        const bool inWords = exchange.service == "updateproject" || exchange.service == "upload";
        for (const char *part : { "request", "reply" }) {
            for (const auto &member : exchange[part].GetObject()) {
                const std::string key = textOf(member.name);
                if (everywhere.count(key) == 0 && key != "LocalFileName" && !inWords) {
                    EXPECT_NE(row.find('"' + key + '"'), std::string::npos) << what << ": " << key;
                }
            }
        }
        const int code = exchange["reply"]["statuscode"].GetInt();
        const Names ofTheEnvelope { "1", "2", "100", "104", "301" };
        if (ofTheEnvelope.count(std::to_string(code)) == 0) {
            EXPECT_TRUE(std::regex_search(row, std::regex("\\b" + std::to_string(code) + "\\b")))
                << what << ": " << code;
        }
    }
}

TEST(ProtocolDocument, StatusCodesAreTheServersAndTheHosts)
{
    std::map<int, std::string> fromHost;
    const std::string header = read("platform/KVXCollaboration/KVXErrorCode.h");
    const std::regex entry("KVX(\\w+) = (\\d+)");
    for (std::sregex_iterator match(header.begin(), header.end(), entry), end; match != end;
         ++match)
        fromHost[std::stoi((*match)[2])] = (*match)[1];

    std::map<int, std::string> fromServer;
    for (const auto code : kvx::server::allStatusCodes())
        fromServer[static_cast<int>(code)] = std::string(kvx::server::statusWord(code));
    fromServer[204] = "AlreadyConnected"; // made by the client
    EXPECT_THAT(fromServer, ContainerEq(fromHost));

    std::map<int, std::string> words;
    std::map<int, std::string> sentences;
    for (const auto &cells : tableRows(read("docs/protocol.md"), "## Status codes")) {
        ASSERT_GE(cells.size(), 3u);
        words[std::stoi(cells[0])] = cells[1];
        sentences[std::stoi(cells[0])] = cells[2];
    }
    EXPECT_THAT(words, ContainerEq(fromHost));
    for (const auto code : kvx::server::allStatusCodes())
        EXPECT_EQ(
            sentences[static_cast<int>(code)], kvx::server::statusSentence(code, { "%1", "%2" }));
}

TEST(ServerDocument, HasEverySettingAndNoOther)
{
    Names documentedKeys;
    for (const auto &cells : tableRows(read("docs/server.md"), "## Settings"))
        documentedKeys.merge(matches(cells.at(0), "`([^`]+)`"));
    Names keys;
    for (const auto &key : kvx::server::configKeys())
        keys.insert(key.name);
    EXPECT_THAT(documentedKeys, ContainerEq(keys));
}
