#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "base/Clock.h"
#include "base/Result.h"
#include "service/models/FetchProgress.h"
#include "service/models/FileFetch.h"
#include "service/models/MachineMemory.h"
#include "service/models/ModelFolder.h"

namespace nulo::service {

/// What follows "nulo-service models".
struct ModelsOptions {
    enum class Action { list, get, remove };

    Action action = Action::list;
    std::string name;
    std::string from;    // URL of a folder with models, or of one; empty: as configured
    std::string sha256;  // of the file; empty: the table's digest
    std::filesystem::path configFile;  // empty: the user's, when there is one
};

/// The error is a line for the user.
Result<ModelsOptions> parsedModelsOptions(const std::vector<std::string>& arguments);

/// The first line is the usage line.
std::string_view modelsHelpText();

/// Lists, fetches and removes models. One thread.
class ModelsCommand {
  public:
    /// `write` shows text to the user; `columns` is his terminal's width, 0 where there is none.
    ModelsCommand(ModelFolder folder, OfflineSettings settings, MachineMemory memory,
                  FetchLimits limits, const Clock& clock, FetchProgress::Write write,
                  unsigned columns);

    ModelOutcome run(const ModelsOptions& options, const StillWanted& stillWanted);

  private:
    struct Source;

    ModelOutcome list();
    ModelOutcome get(const ModelsOptions& options, const StillWanted& stillWanted);
    ModelOutcome remove(const std::string& name);
    Result<Source, ModelFailure> sourceOf(const ModelsOptions& options) const;
    ModelOutcome fetch(const std::string& name, const Source& source,
                       const StillWanted& stillWanted);
    ModelOutcome fetchOnce(const std::string& name, const Source& source, PartialFile& part,
                           const StillWanted& stillWanted);
    std::string stateOf(const std::string& name, const std::string& used) const;
    void sayHowToUse(const std::string& name);
    void say(const std::string& line) { m_write(line + "\n"); }

    const ModelFolder m_folder;
    const OfflineSettings m_settings;
    const MachineMemory m_memory;
    const FetchLimits m_limits;
    const Clock& m_clock;
    const FetchProgress::Write m_write;
    const unsigned m_columns;
};

}  // namespace nulo::service
