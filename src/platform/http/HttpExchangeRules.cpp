#include "platform/http/HttpExchangeRules.h"

#include <algorithm>

namespace nulo {
namespace {

constexpr std::size_t longestHead = 256 * 1024;

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool isToken(std::string_view text) {
    const auto allowed = [](char c) {
        return (c >= '0' && c <= '9') || (lower(c) >= 'a' && lower(c) <= 'z') ||
               std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
    };
    return !text.empty() && std::all_of(text.begin(), text.end(), allowed);
}

std::string_view withoutBlanks(std::string_view text) {
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

}  // namespace

bool sameHeaderName(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return lower(x) == lower(y); });
}

std::optional<Error> faultOf(const HttpRequest& request) {
    if (!isToken(request.method))
        return Error{"The request has no valid method and was not sent"};
    for (const auto& [name, value] : request.headers) {
        if (!isToken(name))
            return Error{"A request header has no valid name; the request was not sent"};
        if (value.find_first_of(std::string_view("\r\n\0", 3)) != std::string::npos)
            return Error{"The value of the request header “" + name +
                         "” holds a line break or a NUL byte; the request was not sent"};
    }
    return std::nullopt;
}

HttpHeaders withoutReplacedHeaders(const HttpHeaders& headers) {
    HttpHeaders result;
    for (auto entry = headers.begin(); entry != headers.end(); ++entry)
        if (std::none_of(entry + 1, headers.end(), [&](const auto& later) {
                return sameHeaderName(later.first, entry->first);
            }))
            result.push_back(*entry);
    return result;
}

ResponseHeadParser::Outcome ResponseHeadParser::take(std::string_view line, int status) {
    if (m_finished)
        return Outcome::finished;
    m_size += line.size();
    if (m_size > longestHead)
        return Outcome::refused;
    const std::string_view text = withoutBlanks(line);
    if (line.starts_with("HTTP/")) {
        m_head = {};
    } else if (text.empty()) {
        m_head.status = status;
        m_finished = status >= 200;
    } else if ((line.front() == ' ' || line.front() == '\t') && !m_head.headers.empty()) {
        m_head.headers.back().second.append(" ").append(text);  // a folded header goes on
    } else if (const auto colon = text.find(':'); colon != std::string_view::npos) {
        m_head.headers.emplace_back(withoutBlanks(text.substr(0, colon)),
                                    withoutBlanks(text.substr(colon + 1)));
    }
    return m_finished ? Outcome::finished : Outcome::unfinished;
}

std::optional<std::string> redirectTarget(const HttpResponseHead& head) {
    const int status = head.status;
    if (status != 301 && status != 302 && status != 303 && status != 307 && status != 308)
        return std::nullopt;
    for (const auto& [name, value] : head.headers)
        if (sameHeaderName(name, "Location") && !value.empty())
            return value;
    return std::nullopt;
}

void adaptToRedirect(HttpRequest& request, int status) {
    const bool becomesGet = (status == 303 && request.method != "HEAD") ||
                            ((status == 301 || status == 302) && request.method == "POST");
    if (!becomesGet)
        return;
    request.method = "GET";
    request.body = {};
    std::erase_if(request.headers, [](const auto& header) {
        return sameHeaderName(header.first.substr(0, 8), "Content-");
    });
}

}  // namespace nulo
