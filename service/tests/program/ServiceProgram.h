#pragma once

#include <gmock/gmock.h>
#include <httplib.h>

#include <fstream>
#include <regex>
#include <stdexcept>

#include "base/FileIO.h"
#include "rig/http/ScriptedHttpServer.h"
#include "rig/process/ChildProcess.h"
#include "rig/process/TemporaryFolder.h"
#include "rig/process/WaitUntil.h"

namespace nulo::service {

inline const std::string program = NULO_BINARY_FOLDER "/nulo-service";

/// The program itself, on a free port, with a configuration where one is given.
class Service {
  public:
    explicit Service(std::vector<std::string> options = {}, const std::string& configuration = "")
        : m_process(arguments(std::move(options), configuration),
                    {{"XDG_CONFIG_HOME=" + folder.path().string(),
                      "XDG_DATA_HOME=" + folder.path().string()},
                     folder / "log"}) {
        const std::regex marker("Listening on https?://127\\.0\\.0\\.1:(\\d+)\n");
        std::smatch found;
        std::string text;
        const auto isKnown = [&] {
            return std::regex_search(text = log(), found, marker) || !m_process.isRunning();
        };
        waitUntil(isKnown, std::chrono::seconds(60));
        if (found.empty())
            throw std::runtime_error("no service: " + text);
        port = std::stoi(found[1]);
    }

    httplib::Client client() const {
        httplib::Client client("127.0.0.1", port);
        client.set_read_timeout(90);
        return client;
    }
    /// Status of a POST.
    int post(const std::string& path, const std::string& body, const std::string& type) const {
        const auto answer = client().Post(path, body, type);
        if (answer && answer->status >= 400) {
            EXPECT_FALSE(answer->body.empty()) << path;
            EXPECT_EQ(answer->get_header_value("Content-Type"), "text/plain; charset=utf-8");
        }
        return answer ? answer->status : 0;
    }
    ChildProcess& process() { return m_process; }
    std::string log() const { return readFile(folder / "log", 1 << 20).value_or(""); }

    const TemporaryFolder folder;
    int port = 0;

  private:
    std::vector<std::string> arguments(std::vector<std::string> options,
                                       const std::string& configuration) const {
        options.insert(options.begin(), {program, "--port", "0", "--jobs", "1"});
        if (!configuration.empty()) {
            std::ofstream(folder / "given.json") << configuration;
            options.insert(options.end(), {"--config", folder / "given.json"});
        }
        return options;
    }

    ChildProcess m_process;
};

}  // namespace nulo::service
