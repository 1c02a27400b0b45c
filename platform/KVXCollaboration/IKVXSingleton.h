#pragma once

#include <atomic>
#include <memory>
#include <mutex>

/// Process-wide object, created on first use and destroyed at process exit.
/// T befriends IKVXSingleton<T> when its constructor is private.
template <class T> class IKVXSingleton {
public:
    static T *getInstance()
    {
        T *instance = s_instance.load(std::memory_order_acquire);
        if (!instance) {
            const std::lock_guard<std::mutex> lock(s_mutex);
            instance = s_instance.load(std::memory_order_relaxed);
            if (!instance) {
                s_owner.reset(new T);
                instance = s_owner.get();
                s_instance.store(instance, std::memory_order_release);
            }
        }
        return instance;
    }

    IKVXSingleton(const IKVXSingleton &) = delete;
    IKVXSingleton &operator=(const IKVXSingleton &) = delete;

protected:
    IKVXSingleton() = default;
    ~IKVXSingleton() = default;

private:
    static inline std::mutex s_mutex;
    static inline std::atomic<T *> s_instance { nullptr };
    static inline std::unique_ptr<T> s_owner;
};
