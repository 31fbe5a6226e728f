#pragma once

#include <string>

namespace nulo::service {

/// What was heard in a recording.
struct Transcript {
    std::string text;      // UTF-8; empty when nothing was said
    std::string language;  // a code such as "fr"; empty when nobody knows it
};

}  // namespace nulo::service
