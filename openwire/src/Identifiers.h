#pragma once

#include <cms/Destination.h>

#include <cstdint>
#include <optional>
#include <string>

namespace kvx::openwire {

struct SessionId {
    std::string connection;
    std::int64_t value = 0;
};

struct ConsumerId {
    std::string connection;
    std::int64_t session = 0;
    std::int64_t value = 0;
};

struct ProducerId {
    std::string connection;
    std::int64_t session = 0;
    std::int64_t value = 0;
};

struct MessageId {
    std::string textView; // set by foreign producers only
    ProducerId producer;
    std::int64_t producerSequence = 0;
    std::int64_t brokerSequence = 0;
};

struct DestinationName {
    cms::Destination::DestinationType kind = cms::Destination::TOPIC;
    std::string name;
};

} // namespace kvx::openwire
