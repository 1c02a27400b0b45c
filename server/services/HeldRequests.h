#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

namespace kvx::server {

/// Requests whose reply is held back until a key is woken or their time is over. Holding takes an
/// entry here and nothing else. Any thread.
template <class T> class HeldRequests {
public:
    using Item = std::shared_ptr<T>;
    /// `overdue` gets what was held for its full time; it is called on this class's own thread.
    explicit HeldRequests(std::function<void(Item)> overdue)
        : m_overdue(std::move(overdue))
        , m_thread([this] { watch(); })
    {
    }

    /// What is still held is dropped.
    ~HeldRequests()
    {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_ending = true;
        }
        m_changed.notify_all();
        m_thread.join();
    }

    /// The requests of a key stand in the order of their numbers; this gives the next one.
    std::uint64_t takeNumber()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_next++;
    }

    /// The place comes before the number: requests with equal places stand in order of their
    /// numbers.
    void hold(const std::string &key, std::uint64_t place, std::uint64_t number,
        std::chrono::steady_clock::time_point until, Item item)
    {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_entries[{ key, place, number }]
                = { m_released ? std::chrono::steady_clock::now() : until, std::move(item) };
        }
        m_changed.notify_all();
    }

    /// Takes out the requests of a key, in order.
    std::vector<Item> take(const std::string &key)
    {
        std::vector<Item> taken;
        const std::lock_guard<std::mutex> lock(m_mutex);
        auto entry = m_entries.lower_bound({ key, 0, 0 });
        while (entry != m_entries.end() && std::get<0>(entry->first) == key) {
            taken.push_back(std::move(entry->second.item));
            entry = m_entries.erase(entry);
        }
        return taken;
    }

    /// The time of everything that is held or will be is over now.
    void releaseAll()
    {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_released = true;
            for (auto &entry : m_entries)
                entry.second.until = std::chrono::steady_clock::now();
        }
        m_changed.notify_all();
    }

private:
    struct Entry {
        std::chrono::steady_clock::time_point until;
        Item item;
    };

    void watch()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        while (!m_ending) {
            const auto first = std::min_element(m_entries.begin(), m_entries.end(),
                [](const auto &a, const auto &b) { return a.second.until < b.second.until; });
            if (first == m_entries.end()) {
                m_changed.wait(lock);
                continue;
            }
            const auto until = first->second.until;
            if (std::chrono::steady_clock::now() < until) {
                m_changed.wait_until(lock, until);
                continue;
            }
            Item item = std::move(first->second.item);
            m_entries.erase(first);
            lock.unlock();
            m_overdue(std::move(item));
            lock.lock();
        }
    }

    const std::function<void(Item)> m_overdue;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::map<std::tuple<std::string, std::uint64_t, std::uint64_t>, Entry> m_entries;
    std::uint64_t m_next = 1;
    bool m_released = false;
    bool m_ending = false;
    std::thread m_thread;
};

} // namespace kvx::server
