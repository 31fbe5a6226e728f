#pragma once

#include <fstream>
#include <string>

#include "ServiceProgram.h"
#include "rig/http/ScriptedHttpServer.h"
#include "rig/process/TemporaryFolder.h"

namespace nulo::service {

/// The program with a configuration of its own.
class ConfiguredService {
  public:
    explicit ConfiguredService(const std::string& configuration)
        : m_file(written(m_folder, configuration)), service({"--config", m_file}) {}

  private:
    static std::string written(const TemporaryFolder& folder, const std::string& text) {
        std::ofstream(folder / "nulo-service.json") << text;
        return folder / "nulo-service.json";
    }
    TemporaryFolder m_folder;
    const std::string m_file;

  public:
    Service service;
};

inline std::string openAiAt(const ScriptedHttpServer& upstream) {
    return R"({"providers": {"openai": {"apiKey": "sk-secret", "baseURL": ")" +
           upstream.url("/v1") + R"("}}})";
}

}  // namespace nulo::service
