#pragma once

#include <chrono>
#include <cstdint>
#include <functional>

#include "base/HttpUrl.h"
#include "service/StillWanted.h"
#include "service/models/PartialFile.h"

namespace nulo::service {

struct FetchLimits {
    std::chrono::seconds connect{15};
    std::chrono::seconds silence{30};   // in which next to nothing arrives
    std::chrono::seconds whole{86400};  // one connection, however steadily it trickles
    std::uintmax_t largestFile = 8'000'000'000;
};

/// How far it is; nothing is known of the total (0) when the server does not tell.
using OnFetched = std::function<void(std::uintmax_t received, std::uintmax_t total)>;

/// Appends to `part` what it lacks of the file at `url`, from its beginning where the server cannot
/// go on or has another file by now. Redirects are followed to https, and from this machine to this
/// machine. A connection that is lost after it has brought something on is made again. Whatever
/// fails, what has arrived stays. Blocks; `stillWanted` is asked at least once a second, and
/// `onFetched` called as often.
ModelOutcome fetchFile(const HttpUrl& url, PartialFile& part, const FetchLimits& limits,
                       const OnFetched& onFetched, const StillWanted& stillWanted);

}  // namespace nulo::service
