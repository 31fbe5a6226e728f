#include "service/Utf8.h"

#include <nlohmann/json.hpp>

#include "base/Text.h"

namespace nulo::service {

std::string repairedUtf8(std::string_view bytes) {
    if (isValidUtf8(bytes))
        return std::string(bytes);
    using nlohmann::json;
    const json text = std::string(bytes);
    return json::parse(text.dump(-1, ' ', false, json::error_handler_t::replace));
}

}  // namespace nulo::service
