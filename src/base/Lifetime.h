#pragma once

#include <memory>
#include <type_traits>
#include <utility>

namespace nulo {

/// Guards callbacks that outlive the object they point to. Hold one as the *last* member; what
/// guard() returns does nothing once the holder is gone. The holder must be destroyed on the thread
/// that runs the guarded callbacks.
class Lifetime {
  public:
    Lifetime() = default;
    Lifetime(const Lifetime&) = delete;
    Lifetime& operator=(const Lifetime&) = delete;

    /// `function` must return nothing and be copyable when it is to live in a std::function.
    template <typename Function>
    auto guard(Function function) const {
        return [
            token = std::weak_ptr<const char>(m_token), function = std::move(function)
        ]<typename... Arguments>(Arguments && ... arguments) mutable requires std::
            is_void_v<std::invoke_result_t<Function&, Arguments...>> {
            if (!token.expired())
                function(std::forward<Arguments>(arguments)...);
        };
    }

  private:
    std::shared_ptr<const char> m_token = std::make_shared<const char>();
};

}  // namespace nulo
