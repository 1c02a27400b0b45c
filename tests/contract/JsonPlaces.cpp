#include "JsonPlaces.h"

#include <cctype>
#include <set>

namespace kvx::test {

namespace {

void visitFrom(const rapidjson::Value &value, const std::string &place, const JsonVisit &visit)
{
    visit(value, place);
    if (value.IsObject()) {
        for (const auto &member : value.GetObject())
            visitFrom(member.value, place + '/' + member.name.GetString(), visit);
    }
    for (rapidjson::SizeType i = 0; value.IsArray() && i < value.Size(); ++i)
        visitFrom(value[i], place + '/' + std::to_string(i), visit);
}

} // namespace

void forEachValue(const rapidjson::Value &value, const JsonVisit &visit)
{
    visitFrom(value, "", visit);
}

std::vector<std::string> placesIn(const rapidjson::Value &value)
{
    std::set<std::string> known;
    std::vector<std::string> places;
    forEachValue(value, [&](const rapidjson::Value &, const std::string &place) {
        if (!place.empty() && known.insert(anyElement(place)).second)
            places.push_back(place);
    });
    return places;
}

std::string anyElement(const std::string &pointer)
{
    std::string result;
    for (std::size_t i = 0; i < pointer.size(); ++i) {
        const bool digit = std::isdigit(static_cast<unsigned char>(pointer[i])) != 0;
        if (digit && !result.empty() && (result.back() == '/' || result.back() == '*')) {
            if (result.back() == '/')
                result += '*';
            continue;
        }
        result += pointer[i];
    }
    return result;
}

const std::vector<const char *> &valuesOfEachType()
{
    static const std::vector<const char *> values { "null", "true", "-1", "0", "2147483648",
        "1e300", "1.9", "\"text\"", "[\"text\"]", "{\"text\":1}" };
    return values;
}

} // namespace kvx::test
