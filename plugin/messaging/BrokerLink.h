#pragma once

#include "messaging/BrokerListener.h"
#include "messaging/CmsLibrary.h"

#include <cms/Connection.h>
#include <cms/MessageConsumer.h>
#include <cms/MessageProducer.h>
#include <cms/Session.h>
#include <cms/Topic.h>
#include <memory>

namespace kvx {

/// What one start of the messager creates. The members are released from the last to the first:
/// destination, producer, consumer, session, connection, listener. The library is shut down after
/// them: their destructors still use what the shutdown takes away.
struct BrokerLink {
    BrokerLink(cms::MessageListener &messages, cms::ExceptionListener &exceptions,
        std::unique_ptr<cms::Connection> opened)
        : listener(messages, exceptions)
        , connection(std::move(opened))
    {
    }

    CmsLibrary library;
    BrokerListener listener;
    std::unique_ptr<cms::Connection> connection;
    std::unique_ptr<cms::Session> session;
    std::unique_ptr<cms::MessageConsumer> consumer;
    std::unique_ptr<cms::MessageProducer> producer; ///< never sends
    std::unique_ptr<cms::Topic> destination;
};

} // namespace kvx
