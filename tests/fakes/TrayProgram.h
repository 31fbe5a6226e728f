#pragma once

#include <QWidget>
#include <fstream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "fakes/FakeEventTap.h"
#include "fakes/FakeMainQueue.h"
#include "fakes/PrintedLines.h"
#include "rig/process/FakeClock.h"
#include "rig/process/TemporaryFolder.h"
#include "rig/sound/FakeMicrophone.h"
#include "ui/tray/MenuBarController.h"

namespace nulo {

/// A menu controller on a real configuration file in a home of its own; everything else is fake.
struct TrayProgram {
    explicit TrayProgram(StatusItem& item)
        : controller(item, recorder, keyMonitor, configFile, printed.print(),
                     [this](const AppConfig& config, auto onSave, auto onClose) {
                         ++settingsMade;
                         settingsConfig = config;
                         saveSettings = onSave;
                         closeSettings = onClose;
                         auto window = std::make_unique<QWidget>();
                         window->resize(580, 620);
                         settingsWindow = window.get();
                         return window;
                     }) {
        configFile.createDefaultIfNeeded();
        controller.onCheckForUpdates = [this] { calls.emplace_back("updates"); };
        controller.onQuit = [this] { calls.emplace_back("quit"); };
    }

    void writeConfig(const std::string& text) { std::ofstream(configFile.configFile()) << text; }
    void setActiveMode(const std::string& id) {
        AppConfig config = configFile.load().value();
        config.activeMode = id;
        configFile.save(config);
    }

    std::vector<std::string> calls;
    int settingsMade = 0;
    AppConfig settingsConfig;
    std::function<Outcome(const AppConfig&)> saveSettings;
    std::function<void()> closeSettings;
    QWidget* settingsWindow = nullptr;

    TemporaryFolder home;
    PrintedLines printed;
    FakeClock clock;
    FakeMainQueue queue{&clock};
    FakeMicrophone microphone;
    FakeEventTapSource taps;
    ConfigFile configFile{home.path(), [](std::string_view) {}};
    AudioRecorder recorder{microphone,
                           [](const std::filesystem::path&, const AudioFileSettings&) {
                               return Result<std::unique_ptr<AudioFileWriter>>(Error{"none"});
                           },
                           queue,
                           clock,
                           printed.print(),
                           home.path()};
    GlobalKeyMonitor keyMonitor{taps, queue, printed.print(),
                                [this] { calls.emplace_back("permission"); }};
    MenuBarController controller;
};

}  // namespace nulo
