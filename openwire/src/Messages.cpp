#include "Messages.h"

#include "Destinations.h"

#include <cms/CMSException.h>
#include <cms/MessageFormatException.h>

#include <algorithm>
#include <charconv>
#include <type_traits>
#include <utility>

namespace kvx::openwire {

namespace {

std::string idText(const MessageId &id)
{
    if (!id.textView.empty())
        return id.textView;
    if (id.producer.connection.empty())
        return {};
    return id.producer.connection + ':' + std::to_string(id.producer.session) + ':'
        + std::to_string(id.producer.value) + ':' + std::to_string(id.producerSequence);
}

[[noreturn]] void refuseProperty(const std::string &name, const char *wanted)
{
    throw cms::MessageFormatException(
        "The property " + name + " cannot be read as " + wanted + ".");
}

ValueMap decodedProperties(const std::string &encoded)
{
    try {
        return decodeValues(encoded);
    } catch (const DecodeError &ex) {
        throw cms::MessageFormatException(
            std::string("The message's properties are damaged: ") + ex.what());
    }
}

// Numbers widen within their kind, texts are parsed; nothing loses digits.
template <typename To> To asNumber(const std::string &name, const Value &value, const char *wanted)
{
    return std::visit(
        [&](const auto &held) -> To {
            using Held = std::decay_t<decltype(held)>;
            constexpr bool isInteger = std::is_integral_v<Held> && !std::is_same_v<Held, bool>;
            if constexpr (std::is_integral_v<To> ? isInteger : std::is_floating_point_v<Held>) {
                if (sizeof(Held) <= sizeof(To))
                    return static_cast<To>(held);
            } else if constexpr (std::is_same_v<Held, std::string>) {
                To result = 0;
                const char *end = held.data() + held.size();
                const auto parsed = std::from_chars(held.data(), end, result);
                if (parsed.ec == std::errc() && parsed.ptr == end)
                    return result;
            }
            refuseProperty(name, wanted);
        },
        value);
}

std::string asText(const std::string &name, const Value &value)
{
    return std::visit(
        [&](const auto &held) -> std::string {
            using Held = std::decay_t<decltype(held)>;
            if constexpr (std::is_same_v<Held, std::string>) {
                return held;
            } else if constexpr (std::is_same_v<Held, bool>) {
                return held ? "true" : "false";
            } else if constexpr (std::is_arithmetic_v<Held>) {
                char text[64];
                const auto end = std::to_chars(text, text + sizeof text, held).ptr;
                return std::string(text, end);
            } else {
                refuseProperty(name, "text");
            }
        },
        value);
}

} // namespace

PlainMessage::PlainMessage(MessageData data, bool received)
    : m_data(std::move(data))
    , m_readOnly(received)
    , m_messageId(idText(m_data.id))
    , m_destination(makeDestination(m_data.destination))
    , m_replyTo(makeDestination(m_data.replyTo))
{
}

PlainMessage::PlainMessage(const PlainMessage &other)
    : cms::Message(other)
    , m_data(other.m_data)
    , m_readOnly(other.m_readOnly)
    , m_messageId(other.m_messageId)
    , m_destination(makeDestination(m_data.destination))
    , m_replyTo(makeDestination(m_data.replyTo))
{
}

void PlainMessage::setSent(const MessageId &id, const DestinationName &destination, bool persistent,
    int priority, std::int64_t timestamp, std::int64_t expiration)
{
    m_data.id = id;
    m_messageId = idText(id);
    m_data.destination = destination;
    m_destination = makeDestination(destination);
    m_data.persistent = persistent;
    setCMSPriority(priority);
    m_data.timestamp = timestamp;
    m_data.expiration = expiration;
}

cms::Message *PlainMessage::clone() const
{
    return new PlainMessage(*this);
}

void PlainMessage::clearBody()
{
    m_data.content.clear();
    m_data.compressed = false;
    m_readOnly = false;
}

void PlainMessage::clearProperties()
{
    m_data.properties.clear();
}

std::vector<std::string> PlainMessage::getPropertyNames() const
{
    std::vector<std::string> names;
    for (const auto &entry : decodedProperties(m_data.properties))
        names.push_back(entry.first);
    return names;
}

bool PlainMessage::propertyExists(const std::string &name) const
{
    return findValue(decodedProperties(m_data.properties), name) != nullptr;
}

Value PlainMessage::property(const std::string &name) const
{
    const ValueMap properties = decodedProperties(m_data.properties);
    const Value *value = findValue(properties, name);
    if (!value)
        throw cms::CMSException("The message has no property " + name + ".");
    return *value;
}

void PlainMessage::setProperty(const std::string &name, Value value)
{
    if (name.empty())
        throw cms::CMSException("A property needs a name.");
    ValueMap properties = decodedProperties(m_data.properties);
    const auto found = std::find_if(properties.begin(), properties.end(),
        [&](const auto &entry) { return entry.first == name; });
    if (found != properties.end())
        found->second = std::move(value);
    else
        properties.emplace_back(name, std::move(value));
    m_data.properties = encodeValues(properties);
}

bool PlainMessage::getBooleanProperty(const std::string &name) const
{
    const Value value = property(name);
    if (const bool *held = std::get_if<bool>(&value))
        return *held;
    if (const std::string *text = std::get_if<std::string>(&value))
        return *text == "true";
    refuseProperty(name, "a truth value");
}

unsigned char PlainMessage::getByteProperty(const std::string &name) const
{
    return static_cast<unsigned char>(asNumber<std::int8_t>(name, property(name), "a byte"));
}

double PlainMessage::getDoubleProperty(const std::string &name) const
{
    return asNumber<double>(name, property(name), "a double");
}

float PlainMessage::getFloatProperty(const std::string &name) const
{
    return asNumber<float>(name, property(name), "a float");
}

int PlainMessage::getIntProperty(const std::string &name) const
{
    return asNumber<std::int32_t>(name, property(name), "an int");
}

long long PlainMessage::getLongProperty(const std::string &name) const
{
    return asNumber<std::int64_t>(name, property(name), "a long");
}

short PlainMessage::getShortProperty(const std::string &name) const
{
    return asNumber<std::int16_t>(name, property(name), "a short");
}

std::string PlainMessage::getStringProperty(const std::string &name) const
{
    return asText(name, property(name));
}

void PlainMessage::setBooleanProperty(const std::string &name, bool value)
{
    setProperty(name, value);
}

void PlainMessage::setByteProperty(const std::string &name, unsigned char value)
{
    setProperty(name, static_cast<std::int8_t>(value));
}

void PlainMessage::setDoubleProperty(const std::string &name, double value)
{
    setProperty(name, value);
}

void PlainMessage::setFloatProperty(const std::string &name, float value)
{
    setProperty(name, value);
}

void PlainMessage::setIntProperty(const std::string &name, int value)
{
    setProperty(name, std::int32_t(value));
}

void PlainMessage::setLongProperty(const std::string &name, long long value)
{
    setProperty(name, std::int64_t(value));
}

void PlainMessage::setShortProperty(const std::string &name, short value)
{
    setProperty(name, std::int16_t(value));
}

void PlainMessage::setStringProperty(const std::string &name, const std::string &value)
{
    setProperty(name, value);
}

int PlainMessage::getCMSDeliveryMode() const
{
    return m_data.persistent ? cms::DeliveryMode::PERSISTENT : cms::DeliveryMode::NON_PERSISTENT;
}

void PlainMessage::setCMSDeliveryMode(int mode)
{
    m_data.persistent = mode == cms::DeliveryMode::PERSISTENT;
}

void PlainMessage::setCMSDestination(const cms::Destination *destination)
{
    m_data.destination.reset();
    if (destination)
        m_data.destination = nameOf(destination);
    m_destination = makeDestination(m_data.destination);
}

void PlainMessage::setCMSPriority(int priority)
{
    m_data.priority = static_cast<std::uint8_t>(std::clamp(priority, 0, 9));
}

void PlainMessage::setCMSReplyTo(const cms::Destination *destination)
{
    m_data.replyTo.reset();
    if (destination)
        m_data.replyTo = nameOf(destination);
    m_replyTo = makeDestination(m_data.replyTo);
}

} // namespace kvx::openwire
