#include "service/http/EventStream.h"

#include <nlohmann/json.hpp>

namespace nulo::service {

std::string textEvent(std::string_view fragment) {
    const nlohmann::json chunk = {{"choices", {{{"delta", {{"content", fragment}}}}}}};
    return "data: " + chunk.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n\n";
}

}  // namespace nulo::service
