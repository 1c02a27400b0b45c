#include "Destinations.h"

#include <cms/InvalidDestinationException.h>

#include <utility>

namespace kvx::openwire {

NamedDestination::NamedDestination(DestinationName name)
    : m_name(std::move(name))
{
}

void NamedDestination::copy(const Destination &source)
{
    const DestinationName name = nameOf(&source);
    if (name.kind != m_name.kind)
        throw cms::InvalidDestinationException(
            "A topic cannot become a queue, nor a queue a topic.");
    m_name = name;
}

bool NamedDestination::equals(const Destination &other) const
{
    const auto *named = dynamic_cast<const NamedDestination *>(&other);
    return named && named->m_name.kind == m_name.kind && named->m_name.name == m_name.name;
}

cms::Destination *TopicDestination::clone() const
{
    return new TopicDestination(*this);
}

cms::Destination *QueueDestination::clone() const
{
    return new QueueDestination(*this);
}

std::unique_ptr<cms::Destination> makeDestination(const std::optional<DestinationName> &name)
{
    if (!name)
        return nullptr;
    if (name->kind == cms::Destination::QUEUE || name->kind == cms::Destination::TEMPORARY_QUEUE)
        return std::make_unique<QueueDestination>(*name);
    return std::make_unique<TopicDestination>(*name);
}

DestinationName nameOf(const cms::Destination *destination)
{
    const auto *named = dynamic_cast<const NamedDestination *>(destination);
    if (!named)
        throw cms::InvalidDestinationException("No destination of this library was given.");
    return named->name();
}

} // namespace kvx::openwire
