#include "messaging/BrokerListener.h"

namespace kvx {

BrokerListener::BrokerListener(cms::MessageListener &messages, cms::ExceptionListener &exceptions)
    : m_messages(messages)
    , m_exceptions(exceptions)
{
}

void BrokerListener::onMessage(const cms::Message *message)
{
    if (const CallGate::Pass pass { m_gate })
        m_messages.onMessage(message);
}

void BrokerListener::onException(const cms::CMSException &exception)
{
    if (const CallGate::Pass pass { m_gate })
        m_exceptions.onException(exception);
}

} // namespace kvx
