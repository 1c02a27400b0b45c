#pragma once

#include "Identifiers.h"

#include <cms/Queue.h>
#include <cms/Topic.h>

#include <memory>
#include <optional>
#include <string>

namespace kvx::openwire {

/// What this library's destinations have in common; a destination of another library has it not.
class NamedDestination : public virtual cms::Destination {
public:
    explicit NamedDestination(DestinationName name);

    const DestinationName &name() const { return m_name; }

    DestinationType getDestinationType() const override { return m_name.kind; }
    /// cms::InvalidDestinationException for one of another kind.
    void copy(const Destination &source) override;
    bool equals(const Destination &other) const override;

private:
    DestinationName m_name;
};

class TopicDestination : public NamedDestination, public cms::Topic {
public:
    using NamedDestination::NamedDestination;
    Destination *clone() const override;
    std::string getTopicName() const override { return name().name; }
};

class QueueDestination : public NamedDestination, public cms::Queue {
public:
    using NamedDestination::NamedDestination;
    Destination *clone() const override;
    std::string getQueueName() const override { return name().name; }
};

/// Null for no name.
std::unique_ptr<cms::Destination> makeDestination(const std::optional<DestinationName> &name);

/// cms::InvalidDestinationException for null and for a destination of another library.
DestinationName nameOf(const cms::Destination *destination);

} // namespace kvx::openwire
