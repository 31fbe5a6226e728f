#pragma once

#include <string>
#include <utility>
#include <variant>

namespace nulo {

/// An expected failure: one sentence that a person can act on, without a final stop.
struct Error {
    std::string description;
};

/// Either a value or the reason why there is none. Holds exactly one of the two.
template <typename T, typename E = Error>
class [[nodiscard]] Result {
  public:
    Result(T value) : m_content(std::in_place_index<0>, std::move(value)) {}
    Result(E error) : m_content(std::in_place_index<1>, std::move(error)) {}

    bool ok() const { return m_content.index() == 0; }
    explicit operator bool() const { return ok(); }

    /// Only when ok(): std::bad_variant_access otherwise, which is a bug of the caller.
    T& value() & { return std::get<0>(m_content); }
    const T& value() const& { return std::get<0>(m_content); }
    T&& value() && { return std::get<0>(std::move(m_content)); }

    /// Only when not ok().
    const E& error() const { return std::get<1>(m_content); }

  private:
    std::variant<T, E> m_content;
};

/// A Result that carries nothing on success: return Success{}.
struct Success {};
using Outcome = Result<Success>;

}  // namespace nulo
