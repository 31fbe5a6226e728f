#pragma once

#include <gtest/gtest.h>
#include <httplib.h>

#include <fstream>
#include <regex>
#include <sstream>
#include <stdexcept>

#include "rig/process/ChildProcess.h"
#include "rig/process/TemporaryFolder.h"
#include "rig/process/WaitUntil.h"

namespace nulo::service {

inline const std::string program = NULO_BINARY_FOLDER "/nulo-service";

/// The program itself, on a free port.
class Service {
  public:
    explicit Service(std::vector<std::string> options = {})
        : m_process(arguments(std::move(options)),
                    {{"XDG_CONFIG_HOME=" + m_folder.path().string()}, m_folder / "log"}) {
        const std::regex marker("Listening on https?://127\\.0\\.0\\.1:(\\d+)\n");
        std::smatch found;
        std::string text;
        const auto listens = [&] {
            text = log();
            return std::regex_search(text, found, marker);
        };
        waitUntil([&] { return listens() || !m_process.isRunning(); }, std::chrono::seconds(60));
        if (!listens())
            throw std::runtime_error("no service: " + log());
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
    std::string log() const {
        std::ostringstream text;
        text << std::ifstream(m_folder / "log").rdbuf();
        return text.str();
    }

    int port = 0;

  private:
    static std::vector<std::string> arguments(std::vector<std::string> options) {
        options.insert(options.begin(), {program, "--port", "0", "--jobs", "1"});
        return options;
    }

    TemporaryFolder m_folder;
    ChildProcess m_process;
};

}  // namespace nulo::service
