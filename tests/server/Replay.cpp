#include "Replay.h"

#include <algorithm>
#include <filesystem>
#include <set>

namespace kvx::test {

namespace {

bool succeeds(const Exchange &exchange)
{
    return exchange.httpStatus() == 200 && exchange["reply"].HasMember("statuscode")
        && exchange["reply"]["statuscode"] == 1;
}

Exchange recognition(const char *service, const char *request, const char *file)
{
    auto document = std::make_shared<rapidjson::Document>(
        parsedJson(std::string(R"({"title":"recognition","path":"/kvx/ocr",)") + file
            + R"("reply":{"statuscode":1},"request":)" + request + '}'));
    Exchange exchange;
    exchange.service = service;
    exchange.file = document;
    exchange.json = document.get();
    return exchange;
}

} // namespace

Replay::Replay(const Exchange &exchange)
    : m_exchange(exchange)
    , m_caller(exchange.has("caller") ? textOf(exchange["caller"]) : "anna")
{
    const char *key = exchange.has("arrived") ? "arrived" : "file";
    const bool upload = exchange.service == "upload" || exchange.service == "submit";
    if (upload && exchange.has(key))
        m_file = std::make_unique<const std::string>(bytesOf(exchange[key]));
    if (exchange.has("state")) {
        for (const auto &step : exchange["state"].GetArray())
            m_state.bring(step);
    }
    m_state.tokenOf(m_caller);
    m_state.harness().config().ocrProgram = KVX_OCR_PROGRAM;
    m_store = std::make_unique<StoreImage>(m_state.harness().db());
    m_store->keep("kept");
}

rapidjson::Document Replay::request() const
{
    return parsedJson(filledJson(m_exchange["request"]));
}

Answer Replay::ask(const rapidjson::Document &request)
{
    m_state.harness().pass(200); // no more than five questions about names in a second
    return Answer(m_state.post(m_caller, m_exchange.path(), compactJson(request), m_file.get()));
}

void Replay::putBack()
{
    m_store->putBack("kept");
}

std::vector<std::string> Replay::files()
{
    namespace fs = std::filesystem;
    const std::string folder = m_state.harness().folder();
    std::vector<std::string> files;
    for (const auto &entry : fs::recursive_directory_iterator(folder)) {
        const std::string name = fs::relative(entry.path(), folder).string();
        if (entry.is_regular_file() && name.rfind("db/", 0) != 0)
            files.push_back(name);
    }
    std::sort(files.begin(), files.end());
    return files;
}

std::vector<Exchange> exchangesForReplay()
{
    std::vector<Exchange> chosen;
    for (const std::string &service : contractServices()) {
        std::vector<Exchange> all = exchangesOf(service);
        std::stable_sort(all.begin(), all.end(), [](const Exchange &left, const Exchange &right) {
            return succeeds(left) && !succeeds(right);
        });
        std::set<std::string> known;
        for (const Exchange &exchange : all) {
            const std::size_t before = known.size();
            forEachValue(
                exchange["request"], [&](const rapidjson::Value &, const std::string &place) {
                    known.insert(anyElement(place));
                });
            if (known.size() > before)
                chosen.push_back(exchange);
        }
    }
    const char *job = R"({"service":"state","JobID":"x","After":0,"Wait":0})";
    chosen.push_back(recognition("state", job, ""));
    chosen.push_back(recognition("result", R"({"service":"result","JobID":"x"})", ""));
    chosen.push_back(recognition("cancel", R"({"service":"cancel","JobID":"x"})", ""));
    chosen.push_back(recognition("languages", R"({"service":"languages"})", ""));
    chosen.push_back(recognition("submit",
        R"({"service":"submit","FileName":"a.png","Languages":["eng"],"ExportType":0,"PageIndexes":[]})",
        R"("file":{"content":"no picture"},)"));
    return chosen;
}

std::vector<std::string> textsIn(const rapidjson::Value &request)
{
    std::vector<std::string> places;
    forEachValue(request, [&](const rapidjson::Value &value, const std::string &place) {
        if (value.IsString() && place != "/service")
            places.push_back(place);
    });
    return places;
}

std::vector<std::string> objectsIn(const rapidjson::Value &request)
{
    std::vector<std::string> places;
    forEachValue(request, [&](const rapidjson::Value &value, const std::string &place) {
        if (value.IsObject())
            places.push_back(place);
    });
    return places;
}

} // namespace kvx::test
