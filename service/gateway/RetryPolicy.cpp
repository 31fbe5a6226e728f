#include "service/gateway/RetryPolicy.h"

#include <curl/curl.h>

#include <algorithm>
#include <iterator>

namespace nulo::service {

using std::chrono::milliseconds;
using std::chrono::seconds;

std::optional<milliseconds> retryAfter(const std::string& header, Clock::WallTime now) {
    if (header.empty())
        return std::nullopt;
    if (header.find_first_not_of("0123456789") == std::string::npos)
        return seconds(header.size() > 6 ? 999999 : std::stol(header));
    const time_t date = curl_getdate(header.c_str(), nullptr);
    if (date < 0)
        return std::nullopt;
    const auto wait = std::chrono::system_clock::from_time_t(date) - now;
    return std::max(milliseconds(0), std::chrono::ceil<milliseconds>(wait));
}

std::optional<milliseconds> retryDelay(int retriesDone, int status,
                                       std::optional<milliseconds> askedFor) {
    constexpr milliseconds own[] = {milliseconds(250), milliseconds(1000)};
    constexpr milliseconds longest = seconds(3);
    const bool passing = status == 429 || (status >= 500 && status <= 599);
    if (!passing || retriesDone < 0 || retriesDone >= int(std::size(own)))
        return std::nullopt;
    if (askedFor > longest)
        return std::nullopt;
    return askedFor.value_or(own[retriesDone]);
}

bool sleepWhileWanted(milliseconds duration, const StillWanted& stillWanted, const Sleep& sleep) {
    constexpr milliseconds slice(200);
    for (; stillWanted(); duration -= slice) {
        if (duration <= milliseconds(0))
            return true;
        sleep(std::min(duration, slice));
    }
    return false;
}

}  // namespace nulo::service
