#pragma once

#include <memory>
#include <string>
#include <vector>

namespace kvx::test {

/// A subscriber of the notification topic that keeps the texts it hears, as they come from the
/// broker. Subscribed when the constructor returns.
class TopicListener {
public:
    explicit TopicListener(const std::string &brokerUrl);
    ~TopicListener();
    TopicListener(const TopicListener &) = delete;
    TopicListener &operator=(const TopicListener &) = delete;

    /// What was heard so far, as soon as it is that many or the time is over.
    std::vector<std::string> await(std::size_t count, int seconds = 20);
    /// What was heard so far, as soon as a message holds that text or the time is over.
    std::vector<std::string> awaitText(const std::string &text, int seconds = 20);

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace kvx::test
