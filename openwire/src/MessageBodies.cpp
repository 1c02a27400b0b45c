#include "Messages.h"

#include "FrameWriter.h"
#include "Inflate.h"

#include <cms/MessageFormatException.h>
#include <cms/MessageNotWriteableException.h>

#include <algorithm>

namespace kvx::openwire {

namespace {

constexpr std::size_t textLengthBytes = 4;

std::size_t claimedLength(const std::string &bytes)
{
    const std::int32_t length = Cursor(bytes).i32();
    if (length < 0 || static_cast<std::size_t>(length) > bytes.size() - 4)
        throw cms::MessageFormatException("The message's body is shorter than it says.");
    return static_cast<std::size_t>(length);
}

} // namespace

cms::Message *PlainTextMessage::clone() const
{
    return new PlainTextMessage(*this);
}

std::string PlainTextMessage::getText() const
{
    if (m_data.content.size() <= textLengthBytes)
        return {};
    if (!m_data.compressed)
        return m_data.content.substr(textLengthBytes, claimedLength(m_data.content));
    std::string inflated = inflateContent(m_data.content);
    if (inflated.size() <= textLengthBytes)
        return {};
    const std::size_t length = claimedLength(inflated);
    inflated.erase(0, textLengthBytes);
    inflated.resize(length);
    return inflated;
}

void PlainTextMessage::setText(const char *msg)
{
    setText(std::string(msg ? msg : ""));
}

void PlainTextMessage::setText(const std::string &msg)
{
    if (m_readOnly)
        throw cms::MessageNotWriteableException(
            "The text of a received message cannot be changed.");
    FrameWriter out(0);
    out.i32(static_cast<std::int32_t>(msg.size())).raw(msg);
    m_data.content = out.take().erase(0, 5);
    m_data.compressed = false;
}

cms::Message *PlainBytesMessage::clone() const
{
    return new PlainBytesMessage(*this);
}

std::string PlainBytesMessage::body() const
{
    if (!m_data.compressed || m_data.content.size() < 4)
        return m_data.content;
    // The length stands before the compressed bytes; some clients compress more than the body.
    const std::int32_t length = Cursor(m_data.content).i32();
    std::string inflated = inflateContent(std::string_view(m_data.content).substr(4));
    if (length < 0 || static_cast<std::size_t>(length) > inflated.size())
        throw cms::MessageFormatException("The message's body is shorter than it says.");
    inflated.resize(static_cast<std::size_t>(length));
    return inflated;
}

int PlainBytesMessage::getBodyLength() const
{
    return static_cast<int>(body().size());
}

unsigned char *PlainBytesMessage::getBodyBytes() const
{
    const std::string bytes = body();
    if (bytes.empty())
        return nullptr;
    auto *copy = new unsigned char[bytes.size()];
    std::copy(bytes.begin(), bytes.end(), copy);
    return copy;
}

cms::Message *PlainMapMessage::clone() const
{
    return new PlainMapMessage(*this);
}

cms::Message *PlainStreamMessage::clone() const
{
    return new PlainStreamMessage(*this);
}

cms::Message *PlainObjectMessage::clone() const
{
    return new PlainObjectMessage(*this);
}

std::unique_ptr<PlainMessage> makeReceived(MessageData data)
{
    switch (data.type) {
    case TextMessageType:
        return std::make_unique<PlainTextMessage>(std::move(data), true);
    case BytesMessageType:
        return std::make_unique<PlainBytesMessage>(std::move(data), true);
    case MapMessageType:
        return std::make_unique<PlainMapMessage>(std::move(data), true);
    case StreamMessageType:
        return std::make_unique<PlainStreamMessage>(std::move(data), true);
    case ObjectMessageType:
        return std::make_unique<PlainObjectMessage>(std::move(data), true);
    default:
        return std::make_unique<PlainMessage>(std::move(data), true);
    }
}

} // namespace kvx::openwire
