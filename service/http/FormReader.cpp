#include "service/http/FormReader.h"

#include <algorithm>
#include <utility>

#include "base/Ascii.h"

namespace nulo::service {
namespace {

constexpr std::string_view lineEnd = "\r\n";
constexpr std::size_t longestBoundary = 70;  // RFC 2046
constexpr std::size_t longestHead = 8 * 1024;

void skipSpaces(std::string_view& text) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
}

/// Takes a value off the front: in quotes, in which a backslash protects one, or up to a semicolon.
std::string takeValue(std::string_view& text) {
    std::string value;
    if (!text.starts_with('"')) {
        const std::string_view token = text.substr(0, text.find_first_of("; \t"));
        text.remove_prefix(token.size());
        return std::string(token);
    }
    text.remove_prefix(1);
    while (!text.empty() && text.front() != '"') {
        if (text.starts_with("\\\"") || text.starts_with("\\\\"))
            text.remove_prefix(1);
        value += text.front();
        text.remove_prefix(1);
    }
    if (!text.empty())
        text.remove_prefix(1);
    return value;
}

/// The parameter of a header such as `form-data; name="file"`.
std::optional<std::string> parameterOf(std::string_view header, std::string_view name) {
    for (std::size_t end; (end = header.find(';')) != std::string_view::npos;) {
        header.remove_prefix(end + 1);
        skipSpaces(header);
        const std::string_view key = header.substr(0, header.find_first_of("=; \t"));
        header.remove_prefix(key.size());
        if (!header.starts_with('='))
            continue;
        header.remove_prefix(1);
        std::string value = takeValue(header);
        if (equalIgnoringAsciiCase(key, name))
            return value;
    }
    return std::nullopt;
}

/// The part of a header's value that stands before its parameters.
std::string_view kindOf(std::string_view header) {
    skipSpaces(header);
    return header.substr(0, header.find_first_of("; \t"));
}

}  // namespace

std::optional<std::string> formBoundary(std::string_view contentType) {
    if (!equalIgnoringAsciiCase(kindOf(contentType), "multipart/form-data"))
        return std::nullopt;
    auto boundary = parameterOf(contentType, "boundary");
    if (!boundary || boundary->empty() || boundary->size() > longestBoundary)
        return std::nullopt;
    return boundary;
}

FormReader::FormReader(const std::string& boundary, StartField startField, AddToField addToField)
    : m_delimiter("\r\n--" + boundary),
      m_startField(std::move(startField)),
      m_addToField(std::move(addToField)) {}

bool FormReader::add(std::string_view bytes) {
    m_bytes += bytes;
    for (bool waits = false; !waits;)
        if (!step(waits))
            return false;
    return true;
}

/// One step on through what is there; `waits` when there is too little for one.
bool FormReader::step(bool& waits) {
    switch (m_state) {
        case State::before:
        case State::content:
            return takeContent(waits);
        case State::boundary: {
            waits = m_bytes.size() < lineEnd.size();
            if (waits)
                return true;
            const bool isLast = m_bytes.starts_with("--");
            if (!isLast && !m_bytes.starts_with(lineEnd))
                return false;
            m_bytes.erase(0, lineEnd.size());
            m_state = isLast ? State::end : State::head;
            m_headSize = 0;
            m_name.reset();
            return true;
        }
        case State::head: {
            const std::size_t end = m_bytes.find(lineEnd);
            waits = end == std::string::npos;
            if (m_headSize + std::min(end, m_bytes.size()) > longestHead)
                return false;
            if (waits)
                return true;
            m_headSize += end + lineEnd.size();
            const bool taken = takeHeadLine(std::string_view(m_bytes).substr(0, end));
            m_bytes.erase(0, end + lineEnd.size());
            return taken;
        }
        case State::end:
            m_bytes.clear();
            waits = true;
    }
    return true;
}

bool FormReader::takeContent(bool& waits) {
    const std::size_t delimiter = m_bytes.find(m_delimiter);
    waits = delimiter == std::string::npos;
    // The last bytes may be the first ones of a delimiter.
    const std::size_t size =
        waits ? m_bytes.size() - std::min(m_bytes.size(), m_delimiter.size() - 1) : delimiter;
    const bool goesOn = m_state == State::before || size == 0 ||
                        m_addToField(std::string_view(m_bytes).substr(0, size));
    m_bytes.erase(0, waits ? size : size + m_delimiter.size());
    if (!waits)
        m_state = State::boundary;
    return goesOn;
}

bool FormReader::takeHeadLine(std::string_view line) {
    if (line.empty()) {
        m_state = State::content;
        return m_name && m_startField(*m_name);
    }
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos)
        return false;
    const std::string_view value = line.substr(colon + 1);
    if (equalIgnoringAsciiCase(line.substr(0, colon), "Content-Disposition") &&
        equalIgnoringAsciiCase(kindOf(value), "form-data"))
        m_name = parameterOf(value, "name");
    return true;
}

}  // namespace nulo::service
