#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace nulo::service {

/// The boundary in the Content-Type of a form; nothing when it is no form or names none that forms
/// can have.
std::optional<std::string> formBoundary(std::string_view contentType);

/// Reads the body of a multipart/form-data request (RFC 7578) in pieces of any size, and hands each
/// field on as it comes. One thread.
class FormReader {
  public:
    /// Return false to stop the reading.
    using StartField = std::function<bool(const std::string& name)>;
    using AddToField = std::function<bool(std::string_view bytes)>;

    FormReader(const std::string& boundary, StartField startField, AddToField addToField);

    /// Reads the next bytes; false when they are no part of a form, or the reading was stopped.
    /// Nothing may follow then.
    bool add(std::string_view bytes);
    /// Whether the form's own end has been read.
    bool isComplete() const { return m_state == State::end; }

  private:
    enum class State {
        before,    // the first boundary
        boundary,  // was read, but not what follows it
        head,      // of a field
        content,   // of a field
        end,       // what follows is dropped
    };
    bool step(bool& waits);
    bool takeContent(bool& waits);
    bool takeHeadLine(std::string_view line);

    const std::string m_delimiter;
    const StartField m_startField;
    const AddToField m_addToField;
    std::string m_bytes =
        "\r\n";  // not yet taken. A delimiter begins with the line's end before it
    std::size_t m_headSize = 0;
    std::optional<std::string> m_name;
    State m_state = State::before;
};

}  // namespace nulo::service
