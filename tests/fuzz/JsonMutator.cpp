#include "JsonMutator.h"

#include <cstring>
#include <random>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <vector>

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t *data, std::size_t size, std::size_t maxSize);

/// Qt's own parser loses a value whose key stands twice; what is lost below it is not ours.
extern "C" const char *__lsan_default_suppressions()
{
    return "leak:libQt5Core";
}

namespace kvx::test {

namespace {

using rapidjson::Document;
using rapidjson::Value;

class JsonMutation {
public:
    JsonMutation(Document &document, unsigned int seed)
        : m_document(document)
        , m_random(seed)
    {
        collect(document);
    }

    void apply()
    {
        Value &place = anyPlace();
        switch (below(6)) {
        case 0:
            copyTo(place);
            return;
        case 1:
            if (place.IsObject() && place.MemberCount() > 0)
                place.EraseMember(
                    place.MemberBegin() + static_cast<int>(below(place.MemberCount())));
            else if (place.IsArray() && !place.Empty())
                place.Erase(place.Begin() + below(place.Size()));
            else
                replace(place);
            return;
        case 2:
            if (place.IsArray() || place.IsObject())
                grow(place);
            else
                replace(place);
            return;
        case 3:
            if (place.IsString())
                changeText(place);
            else
                replace(place);
            return;
        default:
            replace(place);
        }
    }

private:
    void collect(Value &value)
    {
        m_places.push_back(&value);
        if (value.IsObject()) {
            for (auto &member : value.GetObject())
                collect(member.value);
        } else if (value.IsArray()) {
            for (Value &element : value.GetArray())
                collect(element);
        }
    }

    unsigned below(unsigned limit) { return static_cast<unsigned>(m_random() % limit); }
    Value &anyPlace() { return *m_places[below(static_cast<unsigned>(m_places.size()))]; }

    /// The source may hold the place, or be it.
    void copyTo(Value &place)
    {
        Value copy(anyPlace(), m_document.GetAllocator());
        place = copy;
    }

    void grow(Value &place)
    {
        auto &memory = m_document.GetAllocator();
        Value copy(anyPlace(), memory);
        if (place.IsArray()) {
            place.PushBack(copy, memory);
            return;
        }
        // The key of another member, of this object or elsewhere.
        const Value &donor = anyPlace();
        Value key("Email");
        if (donor.IsObject() && donor.MemberCount() > 0)
            key.CopyFrom(
                donor.MemberBegin()[static_cast<int>(below(donor.MemberCount()))].name, memory);
        place.AddMember(key, copy, memory);
    }

    void changeText(Value &place)
    {
        std::vector<std::uint8_t> bytes(place.GetStringLength() + 64);
        std::memcpy(bytes.data(), place.GetString(), place.GetStringLength());
        const std::size_t size
            = LLVMFuzzerMutate(bytes.data(), place.GetStringLength(), bytes.size());
        place.SetString(reinterpret_cast<const char *>(bytes.data()),
            static_cast<rapidjson::SizeType>(size), m_document.GetAllocator());
    }

    void replace(Value &place)
    {
        static const double numbers[] = { 0, 1, -1, 2, 7, 204, 235, 0.5, 1.9, 2147483647,
            -2147483648.0, 2147483648.0, 9007199254740993.0, 9.3e18, 1e300, -1e300 };
        static const char *const texts[] = { "", "0", "1", "-1", "2147483648", "anna@example.com",
            "ben@example.com", "{11111111-1111-1111-1111-111111111111}", "Tender", "Estimate",
            "2026-11-21 14:05", "../x", "a\"b", "{}", "[]", "%1%2", "\xc3\xa4\xf0\x9f\x98\x80" };
        switch (below(7)) {
        case 0:
            place.SetNull();
            return;
        case 1:
            place.SetBool(below(2) == 1);
            return;
        case 2:
            place.SetArray();
            return;
        case 3:
            place.SetObject();
            return;
        case 4: {
            const double number = numbers[below(sizeof numbers / sizeof *numbers)];
            if (number > -2147483649.0 && number < 2147483648.0
                && number == static_cast<double>(static_cast<int>(number)))
                place.SetInt(static_cast<int>(number));
            else
                place.SetDouble(number);
            return;
        }
        case 5:
            place.SetInt(static_cast<int>(m_random()));
            return;
        default:
            place.SetString(rapidjson::StringRef(texts[below(sizeof texts / sizeof *texts)]));
        }
    }

    Document &m_document;
    std::minstd_rand m_random;
    std::vector<Value *> m_places;
};

} // namespace

std::size_t mutateJson(std::uint8_t *data, std::size_t size, std::size_t maxSize, unsigned int seed)
{
    Document document;
    document.Parse<rapidjson::kParseIterativeFlag>(reinterpret_cast<const char *>(data), size);
    if (document.HasParseError() || seed % 8 == 0)
        return LLVMFuzzerMutate(data, size, maxSize);
    JsonMutation(document, seed).apply();
    rapidjson::StringBuffer text;
    rapidjson::Writer<rapidjson::StringBuffer> writer(text);
    if (!document.Accept(writer) || text.GetSize() > maxSize)
        return LLVMFuzzerMutate(data, size, maxSize);
    std::memcpy(data, text.GetString(), text.GetSize());
    return text.GetSize();
}

} // namespace kvx::test
