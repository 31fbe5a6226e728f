#pragma once

#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "desktop/UserDefaults.h"
#include "update/ProcessLauncher.h"
#include "update/UpdateHttp.h"
#include "update/UpdateWindows.h"

namespace nulo {

/// Keeps what is asked until the test answers, oldest first.
class FakeUpdateHttp final : public UpdateHttp {
  public:
    void get(const std::string& url, std::size_t, GetCompletion completion) override {
        urls.push_back(url);
        m_gets.push_back(std::move(completion));
    }
    void download(const std::string& url, const std::filesystem::path& file, std::uintmax_t,
                  DownloadCompletion completion) override {
        urls.push_back(url);
        m_downloads.emplace_back(file, std::move(completion));
    }

    void answerGet(Result<std::string> body) { takeFirst(m_gets)(std::move(body)); }
    void cancel() override {
        m_gets.clear();
        m_downloads.clear();
    }
    void finishDownload(const std::string& content, int status = 200, bool isWhole = true) {
        const auto [file, completion] = takeFirst(m_downloads);
        std::ofstream(file) << content;
        completion(Download{status, isWhole});
    }
    bool isBusy() const { return !m_gets.empty() || !m_downloads.empty(); }
    void failDownload(const std::string& why) { takeFirst(m_downloads).second(Error{why}); }
    /// Ends well, but the file is no longer there.
    void loseDownload() { takeFirst(m_downloads).second(Download{200, true}); }

    std::vector<std::string> urls;

  private:
    template <typename T>
    static T takeFirst(std::vector<T>& waiting) {
        T first = std::move(waiting.at(0));  // throws when nothing was asked
        waiting.erase(waiting.begin());
        return first;
    }

    std::vector<GetCompletion> m_gets;
    std::vector<std::pair<std::filesystem::path, DownloadCompletion>> m_downloads;
};

/// Notes what is shown as one line each; the test answers for the user.
class FakeUpdateWindows final : public UpdateWindows {
  public:
    void showUpdateDialog(const VersionInfo& info, const std::string& currentVersion,
                          std::function<void(Answer)> onAnswer) override {
        shown.push_back("update to " + info.version + " from " + currentVersion + ": " +
                        info.releaseNotes);
        answer = std::move(onAnswer);
    }
    void showUpToDate(const std::string& currentVersion, std::function<void()> onClose) override {
        note("up to date: " + currentVersion, std::move(onClose));
    }
    void showError(const std::string& message, std::function<void()> onClose) override {
        note("error: " + message, std::move(onClose));
    }
    void showProgress(const std::string& version, std::function<void()> onCancel) override {
        note("progress: " + version, std::move(onCancel));
    }
    void closeProgress() override { shown.emplace_back("progress closed"); }
    void bringToFront() override { shown.emplace_back("brought to front"); }

    std::vector<std::string> shown;
    std::function<void(Answer)> answer;
    std::function<void()> close;  // of the window shown last; ends a progress

  private:
    void note(const std::string& line, std::function<void()> onClose) {
        shown.push_back(line);
        close = std::move(onClose);
    }
};

class FakeProcessLauncher final : public ProcessLauncher {
  public:
    Outcome launch(const std::vector<std::string>& command) override {
        commands.push_back(command);
        return result;
    }

    std::vector<std::vector<std::string>> commands;
    Outcome result = Success{};
};

class FakeUserDefaults final : public UserDefaults {
  public:
    std::optional<bool> boolean(std::string_view key) const override { return find(booleans, key); }
    std::optional<double> number(std::string_view key) const override { return find(numbers, key); }
    std::optional<std::string> text(std::string_view) const override { return std::nullopt; }
    void set(std::string_view key, bool value) override { booleans[std::string(key)] = value; }
    void set(std::string_view key, double value) override { numbers[std::string(key)] = value; }

    std::map<std::string, bool> booleans;
    std::map<std::string, double> numbers;

  private:
    template <typename Value>
    static std::optional<Value> find(const std::map<std::string, Value>& values,
                                     std::string_view key) {
        const auto entry = values.find(std::string(key));
        return entry == values.end() ? std::nullopt : std::optional(entry->second);
    }
};

}  // namespace nulo
