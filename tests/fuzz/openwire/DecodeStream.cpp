#include "DecodeStream.h"

#include "Commands.h"
#include "Cursor.h"
#include "FrameBuffer.h"
#include "Messages.h"
#include "Refusal.h"
#include "WireFormat.h"

#include <cms/CMSException.h>

#include <cstdlib>
#include <memory>

namespace kvx::test {

using namespace kvx::openwire;

namespace {

void use(const MessageData &data)
{
    const std::unique_ptr<PlainMessage> message = makeReceived(data);
    const std::unique_ptr<cms::Message> copy(message->clone());
    try {
        if (const auto *text = dynamic_cast<const cms::TextMessage *>(copy.get()))
            text->getText();
        if (const auto *bytes = dynamic_cast<const cms::BytesMessage *>(copy.get()))
            delete[] bytes->getBodyBytes();
    } catch (const cms::CMSException &) {
    }
    try {
        for (const std::string &name : copy->getPropertyNames()) {
            try {
                copy->getStringProperty(name);
                copy->getLongProperty(name);
            } catch (const cms::CMSException &) {
            }
        }
    } catch (const cms::CMSException &) {
    }
    try {
        // What was received can be passed on, but for header texts that are no text.
        const std::string frame = encodeMessage(data, 1, true, 12).substr(4);
        const std::string dispatch
            = std::string("\x15\0\0\0\0\0\0\0\1", 9) + frame + std::string(4, '\0');
        const Command again = decodeCommand(dispatch, 12);
        const auto *result = std::get_if<MessageDispatch>(&again);
        if (!result || !result->message || result->message->content != data.content)
            std::abort();
    } catch (const cms::CMSException &) {
    }
}

} // namespace

void decodeStream(std::string_view bytes)
{
    FrameBuffer buffer;
    int version = 0;
    try {
        while (!bytes.empty()) {
            // In pieces, as a socket brings them.
            const std::string_view piece = bytes.substr(0, 100);
            bytes.remove_prefix(piece.size());
            buffer.append(piece);
            while (const auto frame = buffer.next()) {
                if (version == 0) {
                    version = negotiate({}, decodeWireFormatInfo(*frame)).version;
                    if (version < 1 || version > 12)
                        std::abort();
                    continue;
                }
                try {
                    const Command command = decodeCommand(*frame, version);
                    if (const auto *dispatch = std::get_if<MessageDispatch>(&command)) {
                        if (dispatch->message)
                            use(*dispatch->message);
                    } else if (const auto *response = std::get_if<Response>(&command)) {
                        if (response->failure)
                            toException(*response->failure);
                    }
                } catch (const DecodeError &) {
                }
            }
        }
    } catch (const ProtocolError &) {
    } catch (const DecodeError &) {
    }
}

} // namespace kvx::test
