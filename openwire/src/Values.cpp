#include "Values.h"

#include "FrameWriter.h"
#include "ModifiedUtf8.h"

#include <cstring>

namespace kvx::openwire {

namespace {

enum ValueTag : std::uint8_t {
    NullTag,
    BooleanTag,
    ByteTag,
    CharacterTag,
    ShortTag,
    IntTag,
    LongTag,
    DoubleTag,
    FloatTag,
    StringTag,
    BytesTag,
    MapTag,
    ListTag,
    BigStringTag
};

constexpr std::size_t bigStringFrom = 8191; // the broker's own clients switch at this length

template <typename To, typename From> To bitsAs(From from)
{
    static_assert(sizeof(To) == sizeof(From));
    To to;
    std::memcpy(&to, &from, sizeof to);
    return to;
}

void skipValue(Cursor &cursor, std::uint8_t tag, int depth)
{
    if (depth > maxDepth)
        throw DecodeError("Values are nested too deeply");
    switch (tag) {
    case NullTag:
        return;
    case BooleanTag:
    case ByteTag:
        cursor.bytes(1);
        return;
    case CharacterTag:
    case ShortTag:
        cursor.bytes(2);
        return;
    case IntTag:
    case FloatTag:
        cursor.bytes(4);
        return;
    case LongTag:
    case DoubleTag:
        cursor.bytes(8);
        return;
    case StringTag:
        cursor.shortText();
        return;
    case BytesTag:
    case BigStringTag:
        cursor.bytes(cursor.count());
        return;
    case MapTag:
        for (std::size_t left = cursor.count(); left > 0; --left) {
            cursor.shortText();
            skipValue(cursor, cursor.u8(), depth + 1);
        }
        return;
    case ListTag:
        for (std::size_t left = cursor.count(); left > 0; --left)
            skipValue(cursor, cursor.u8(), depth + 1);
        return;
    default:
        throw DecodeError("A value has an unknown type");
    }
}

Value readValue(Cursor &cursor, std::string_view all)
{
    const std::uint8_t tag = cursor.u8();
    switch (tag) {
    case BooleanTag:
        return cursor.boolean();
    case ByteTag:
        return static_cast<std::int8_t>(cursor.u8());
    case ShortTag:
        return cursor.i16();
    case IntTag:
        return cursor.i32();
    case LongTag:
        return cursor.i64();
    case DoubleTag:
        return bitsAs<double>(cursor.i64());
    case FloatTag:
        return bitsAs<float>(cursor.i32());
    case StringTag:
        return std::string(cursor.shortText());
    case BigStringTag:
        return std::string(cursor.bytes(cursor.count()));
    default:
        break;
    }
    const std::size_t start = all.size() - cursor.left();
    skipValue(cursor, tag, 1);
    return OpaqueValue { tag, std::string(all.substr(start, all.size() - cursor.left() - start)) };
}

struct ValueEncoder {
    FrameWriter &out;

    void operator()(const OpaqueValue &value) { out.u8(value.tag).raw(value.bytes); }
    void operator()(bool value) { out.u8(BooleanTag).boolean(value); }
    void operator()(std::int8_t value) { out.u8(ByteTag).u8(static_cast<std::uint8_t>(value)); }
    void operator()(std::int16_t value) { out.u8(ShortTag).i16(value); }
    void operator()(std::int32_t value) { out.u8(IntTag).i32(value); }
    void operator()(std::int64_t value) { out.u8(LongTag).i64(value); }
    void operator()(double value) { out.u8(DoubleTag).i64(bitsAs<std::int64_t>(value)); }
    void operator()(float value) { out.u8(FloatTag).i32(bitsAs<std::int32_t>(value)); }
    void operator()(const std::string &value)
    {
        const std::string text = toModifiedUtf8(value);
        if (text.size() >= bigStringFrom)
            out.u8(BigStringTag).i32(static_cast<std::int32_t>(text.size())).raw(text);
        else
            out.u8(StringTag).i16(static_cast<std::int16_t>(text.size())).raw(text);
    }
};

} // namespace

ValueMap decodeValues(std::string_view bytes)
{
    ValueMap values;
    if (bytes.empty())
        return values;
    Cursor cursor(bytes);
    for (std::size_t left = cursor.count(); left > 0; --left) {
        std::string name(cursor.shortText());
        values.emplace_back(std::move(name), readValue(cursor, bytes));
    }
    return values;
}

std::string encodeValues(const ValueMap &values)
{
    FrameWriter out(0);
    out.i32(static_cast<std::int32_t>(values.size()));
    for (const auto &[name, value] : values) {
        const std::string key = toModifiedUtf8(name);
        out.i16(static_cast<std::int16_t>(key.size())).raw(key);
        std::visit(ValueEncoder { out }, value);
    }
    return out.take().substr(5);
}

const Value *findValue(const ValueMap &values, std::string_view name)
{
    for (const auto &entry : values) {
        if (entry.first == name)
            return &entry.second;
    }
    return nullptr;
}

} // namespace kvx::openwire
