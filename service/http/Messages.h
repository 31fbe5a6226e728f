#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "service/Failure.h"

namespace nulo::service {

using Headers = std::vector<std::pair<std::string, std::string>>;

/// What stands before the body of a request.
struct RequestHead {
    std::string method;
    std::string path;  // decoded, without the query
    Headers headers;
    bool isFromOwnUser = false;  // a program of this machine, run by this service's user or by root

    /// The first header of that name, in small or capital letters; empty when there is none.
    std::string header(std::string_view name) const;
    std::size_t count(std::string_view name) const;
    /// Whether no proxy on the way can have read another head than this: its names are tokens, its
    /// values have no control characters, and host and length are stated once.
    bool isSound() const;
};

/// An answer, or the head of one whose body follows in pieces.
struct Answer {
    struct File {
        std::shared_ptr<const int> descriptor;  // closes it in the end
        std::uint64_t size = 0;
    };
    int status = 200;
    std::string type = "text/plain; charset=utf-8";
    std::string body;
    Headers headers = {};
    std::optional<File> file = {};  // in place of the body

    Answer(int withStatus, std::string ofType, std::string text, Headers more = {})
        : status(withStatus),
          type(std::move(ofType)),
          body(std::move(text)),
          headers(std::move(more)) {}
    explicit Answer(const Failure& failure);
};

}  // namespace nulo::service
