#pragma once

#include "messaging/CallGate.h"

#include <cms/ExceptionListener.h>
#include <cms/MessageListener.h>

namespace kvx {

/// Stands between the broker library's threads and the messager, which can be gone before them:
/// a connection whose close takes long is left behind, and may still call.
class BrokerListener : public cms::MessageListener, public cms::ExceptionListener {
public:
    /// Both are borrowed until the gate is closed and empty.
    BrokerListener(cms::MessageListener &messages, cms::ExceptionListener &exceptions);

    void onMessage(const cms::Message *message) override;
    void onException(const cms::CMSException &exception) override;

    CallGate &gate() { return m_gate; }

private:
    CallGate m_gate;
    cms::MessageListener &m_messages;
    cms::ExceptionListener &m_exceptions;
};

} // namespace kvx
