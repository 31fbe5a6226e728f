#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace nulo::service {

/// Reads the event stream of a chat completion, in pieces of any size. Comments, events without
/// text and the line ends of any system are understood; bytes that are no UTF-8 are replaced.
class ChatEvents {
  public:
    enum class State {
        open,
        ended,   // as it should
        broken,  // it is no event stream, it reports an error, or it was cut off
    };

    /// Appends the texts in `bytes` to `fragments`. Nothing that follows the end is looked at.
    State add(std::string_view bytes, std::vector<std::string>& fragments);
    /// No more bytes will come.
    State finish();
    /// What a broken stream said about it, for a person; may be empty.
    const std::string& fault() const { return m_fault; }

  private:
    State takeLine(std::string_view line, std::vector<std::string>& fragments);
    State broken(std::string fault);

    std::string m_line;  // so far
    std::size_t m_size = 0;
    bool m_stopped = false;  // the model said that it is done
    std::string m_fault;
    State m_state = State::open;
};

}  // namespace nulo::service
