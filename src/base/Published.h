#pragma once

#include <algorithm>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace nulo {

/// Keeps a subscription alive; destroying it ends the subscription, also from inside a callback.
using Subscription = std::shared_ptr<void>;

/// A value whose changes are announced to any number of subscribers. One thread only (main).
/// It may be destroyed before its subscriptions.
template <typename T>
class Published {
  public:
    using Listener = std::function<void(const T&)>;

    explicit Published(T initial = {}) : m_value(std::move(initial)) {}
    Published(const Published&) = delete;
    Published& operator=(const Published&) = delete;

    const T& get() const { return m_value; }

    /// Stores and announces, also when the value is equal to the old one.
    void set(T value) {
        m_value = std::move(value);
        announce();
    }

    /// Changes the value in place (no copy), then announces.
    template <typename Change>
    void change(Change change) {
        change(m_value);
        announce();
    }

    /// `listener` gets every later value; it does not get the present one.
    [[nodiscard]] Subscription subscribe(Listener listener) {
        auto entry = std::make_shared<Listener>(std::move(listener));
        std::erase_if(m_listeners, [](const auto& old) { return old.expired(); });
        m_listeners.push_back(entry);
        return entry;
    }

  private:
    void announce() {
        const auto listeners = m_listeners;  // a callback may subscribe or end a subscription
        for (const auto& weak : listeners)
            if (const auto listener = weak.lock())
                (*listener)(m_value);
    }

    T m_value;
    std::vector<std::weak_ptr<Listener>> m_listeners;
};

}  // namespace nulo
