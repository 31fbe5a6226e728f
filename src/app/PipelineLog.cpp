#include "app/PipelineLog.h"

#include <cstdio>
#include <fstream>
#include <string>

namespace nulo {
namespace fs = std::filesystem;
namespace {

constexpr fs::perms ownerOnly = fs::perms::owner_read | fs::perms::owner_write;

std::string rule() {
    return std::string(70, '=');
}

}  // namespace

PipelineLog::PipelineLog(const fs::path& logDir, const Clock& clock, Print print)
    : m_file(logDir / "pipeline.log"), m_clock(clock), m_print(std::move(print)) {
    std::error_code ignored;
    fs::create_directories(logDir, ignored);
    fs::permissions(m_file, ownerOnly, ignored);  // it quotes what was said
}

void PipelineLog::startSession(const fs::path& audioFile) {
    std::error_code error;
    const std::uintmax_t found = fs::file_size(audioFile, error);
    const std::uintmax_t bytes = error ? 0 : found;

    const std::lock_guard lock(m_mutex);
    ++m_sessionId;
    m_sessionStart = m_clock.now();
    write("\n" + rule());
    write("SESSION #" + std::to_string(m_sessionId) + " — " + logTimestamp(m_clock.wallTime()));
    write("Audio: " + audioFile.filename().string() + " (" + std::to_string(bytes) + " bytes, " +
          std::to_string(bytes / 1024) + "KB)");
}

void PipelineLog::log(std::string_view message) {
    const std::lock_guard lock(m_mutex);
    char elapsed[32];
    std::snprintf(elapsed, sizeof elapsed, "%5lld", elapsedMilliseconds());
    std::string line = "[" + logTimestamp(m_clock.wallTime()) + "] +" + elapsed + "ms  ";
    line += message;
    write(line);
    m_print("[nulo-log] " + line);
}

void PipelineLog::endSession() {
    const std::lock_guard lock(m_mutex);
    write("TOTAL: " + std::to_string(elapsedMilliseconds()) + "ms");
    write(rule());
    m_sessionStart.reset();
}

long long PipelineLog::elapsedMilliseconds() const {
    return m_sessionStart ? wholeMilliseconds(m_clock.now() - *m_sessionStart) : 0;
}

void PipelineLog::write(std::string_view line) {
    std::error_code ignored;
    const bool isNew = !fs::exists(m_file, ignored);
    std::ofstream file(m_file, std::ios::binary | std::ios::app);
    if (isNew)
        fs::permissions(m_file, ownerOnly, ignored);
    file << std::string(line) + "\n" << std::flush;
}

}  // namespace nulo
