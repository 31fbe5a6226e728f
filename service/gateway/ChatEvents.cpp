#include "service/gateway/ChatEvents.h"

#include <nlohmann/json.hpp>

#include "service/Strings.h"

namespace nulo::service {
namespace {

using nlohmann::json;

constexpr std::size_t longestLine = 1024 * 1024;
/// A cleaned dictation is a few kilobytes; a model that never stops is cut off.
constexpr std::size_t longestStream = 8 * 1024 * 1024;

/// The member, when `value` is an object that has it; null otherwise.
const json& member(const json& value, const char* name) {
    static const json null;
    const auto found = value.is_object() ? value.find(name) : value.end();
    return found == value.end() ? null : *found;
}

}  // namespace

ChatEvents::State ChatEvents::broken(std::string fault) {
    m_fault = std::move(fault);
    return m_state = State::broken;
}

ChatEvents::State ChatEvents::add(std::string_view bytes, std::vector<std::string>& fragments) {
    m_size += bytes.size();
    while (m_state == State::open && !bytes.empty()) {
        const std::size_t end = bytes.find('\n');
        m_line.append(bytes.substr(0, end));
        bytes.remove_prefix(end == std::string_view::npos ? bytes.size() : end + 1);
        if (m_line.size() > longestLine)
            return broken("its answer is no event stream");
        if (end == std::string_view::npos)
            break;
        m_state = takeLine(m_line, fragments);
        m_line.clear();
    }
    if (m_state == State::open && m_size > longestStream)
        return broken("its answer does not end");
    return m_state;
}

ChatEvents::State ChatEvents::finish() {
    if (m_state != State::open)
        return m_state;
    std::vector<std::string> ignored;
    if (!m_line.empty())  // a last line may lack its end
        m_state = takeLine(m_line, ignored);
    if (m_state == State::open && m_stopped && ignored.empty())
        m_state = State::ended;
    return m_state == State::open ? broken("its answer broke off") : m_state;
}

ChatEvents::State ChatEvents::takeLine(std::string_view line, std::vector<std::string>& fragments) {
    if (line.ends_with('\r'))
        line.remove_suffix(1);
    if (line.empty() || line.starts_with(':') || line.starts_with("event:") ||
        line.starts_with("id:") || line.starts_with("retry:"))
        return State::open;
    if (!line.starts_with("data:"))
        return broken("its answer is no event stream");
    line.remove_prefix(line.starts_with("data: ") ? 6 : 5);
    if (line == "[DONE]")
        return State::ended;
    const json event = json::parse(repairedUtf8(line), nullptr, false);
    if (!event.is_object())
        return broken("its answer is no event stream");
    if (event.contains("error") && !event["error"].is_null())
        return broken("it reported an error in the middle of its answer");
    const json& choices = member(event, "choices");
    if (!choices.is_array() || choices.empty())
        return State::open;
    const json& text = member(member(choices[0], "delta"), "content");
    if (text.is_string() && !text.get_ref<const std::string&>().empty())
        fragments.push_back(text);
    const json& reason = member(choices[0], "finish_reason");
    if (reason == "length" || reason == "content_filter")
        return broken("it stopped before the end of the text");
    m_stopped = m_stopped || reason.is_string();
    return State::open;
}

}  // namespace nulo::service
