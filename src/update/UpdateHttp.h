#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>

#include "base/Result.h"

namespace nulo {

/// The requests that updates need: plain GETs without headers of ours. Redirects are followed, but
/// never to an address that is not secure (see isSecureHttpUrl). Called on the main thread, where
/// the completions run too, never inside the call. Destroying it gives up what is under way,
/// without completions.
class UpdateHttp {
  public:
    using GetCompletion = std::function<void(Result<std::string> body)>;
    struct Download {
        int status = 0;
        bool isWhole = false;  // its end was marked, so that a part of it would have been noticed
    };
    using DownloadCompletion = std::function<void(Result<Download> download)>;

    virtual ~UpdateHttp() = default;

    /// Fetches the answer's body, whatever its status; a longer body is cut off at `limit` bytes.
    virtual void get(const std::string& url, std::size_t limit, GetCompletion completion) = 0;

    /// Streams the answer's body, whatever its status, to a new file, which belongs to the caller
    /// once the completion is given a Download. Without a Download there is no file. `file` must
    /// not exist. What is longer than `limit` bytes is an error.
    virtual void download(const std::string& url, const std::filesystem::path& file,
                          std::uintmax_t limit, DownloadCompletion completion) = 0;

    /// Gives up what is under way, without completions and leaving no file.
    virtual void cancel() = 0;
};

}  // namespace nulo
