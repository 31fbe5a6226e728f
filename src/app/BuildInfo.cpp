#include "app/BuildInfo.h"

namespace nulo::build {

std::string_view version() {
    constexpr std::string_view projectVersion = NULO_VERSION;
    return projectVersion.empty() ? "0.0" : projectVersion;
}

std::string_view baseURL() {
    return NULO_BASE_URL;
}

}  // namespace nulo::build
