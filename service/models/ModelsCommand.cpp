#include "service/models/ModelsCommand.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "base/Ascii.h"
#include "service/Sha256.h"
#include "service/models/Amounts.h"
#include "service/models/ModelTable.h"
#include "service/models/OfflineChoice.h"

namespace nulo::service {
namespace {

using Kind = ModelFailure::Kind;

std::string row(std::string_view name, const std::string& file, const std::string& memory,
                const std::string& languages, const std::string& rest) {
    std::array<char, 320> text{};
    std::snprintf(text.data(), text.size(), "%-22.*s%9s%9s%11s  %s", static_cast<int>(name.size()),
                  name.data(), file.c_str(), memory.c_str(), languages.c_str(), rest.c_str());
    return text.data();
}

bool isIntact(const InstalledModel& model) {
    const auto digest = sha256OfFile(model.model.file);
    return digest && digest.value() == model.model.sha256;
}

}  // namespace

/// Where a model comes from, and what it must be.
struct ModelsCommand::Source {
    HttpUrl url;
    std::string sha1;
    std::string sha256;

    bool describes(const FileDigests& digests) const {
        return sha256.empty() ? digests.sha1 == sha1 : digests.sha256 == sha256;
    }
};

Result<ModelsOptions> parsedModelsOptions(const std::vector<std::string>& arguments) {
    ModelsOptions options;
    std::vector<std::string> words;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& name = arguments[i];
        if (!name.starts_with("-")) {
            words.push_back(name);
            continue;
        }
        if (name != "--from" && name != "--sha256" && name != "--config")
            return Error{"unknown option " + name};
        if (i + 1 == arguments.size() || arguments[i + 1].empty())
            return Error{name + " needs a value"};
        const std::string& value = arguments[++i];
        if (name == "--from")
            options.from = value;
        if (name == "--sha256")
            options.sha256 = asciiLower(value);
        if (name == "--config")
            options.configFile = value;
    }
    if (!options.sha256.empty() && !isSha256(options.sha256))
        return Error{"--sha256 takes the 64 hexadecimal digits that sha256sum prints"};
    if (words.empty())
        return options;
    if ((words[0] != "get" && words[0] != "remove") || words.size() != 2)
        return Error{"models takes \"get NAME\", \"remove NAME\" or nothing"};
    if (!isModelName(words[1]))
        return Error{"\"" + words[1] + "\" is no model's name; nulo-service models lists them"};
    options.action = words[0] == "get" ? ModelsOptions::Action::get : ModelsOptions::Action::remove;
    options.name = words[1];
    return options;
}

std::string_view modelsHelpText() {
    return "usage: nulo-service models [get NAME [--from URL] [--sha256 D] | remove NAME] "
           "[--config F]\n";
}

ModelsCommand::ModelsCommand(ModelFolder folder, OfflineSettings settings, MachineMemory memory,
                             FetchLimits limits, const Clock& clock, FetchProgress::Write write,
                             unsigned columns)
    : m_folder(std::move(folder)),
      m_settings(std::move(settings)),
      m_memory(memory),
      m_limits(limits),
      m_clock(clock),
      m_write(std::move(write)),
      m_columns(columns) {}

ModelOutcome ModelsCommand::run(const ModelsOptions& options, const StillWanted& stillWanted) {
    switch (options.action) {
        case ModelsOptions::Action::list:
            return list();
        case ModelsOptions::Action::get:
            return get(options, stillWanted);
        case ModelsOptions::Action::remove:
            return remove(options.name);
    }
    return Success{};
}

ModelOutcome ModelsCommand::list() {
    const auto tried = modelsToTry(m_settings, m_folder, m_memory);
    const std::string used = tried && !tried.value().empty() && !m_settings.file
                                 ? tried.value().front().name
                                 : std::string();
    say(row("model", "file", "memory", "languages", "on this machine"));
    for (const KnownModel& known : knownModels()) {
        const std::uintmax_t memory = std::uintmax_t{known.memoryMegabytes} * 1'000'000;
        static constexpr std::array fits = {"fits", "fits when other programs end", "too large"};
        std::string rest = fits.at(static_cast<std::size_t>(memoryFit(memory, m_memory)));
        const std::string state = stateOf(std::string(known.name), used);
        if (state.empty() && known.sha1.empty())
            rest += "; needs --sha256";
        say(row(known.name, amountOf(std::uintmax_t{known.megabytes} * 1'000'000), amountOf(memory),
                std::to_string(known.languages), rest + state));
    }
    for (const InstalledModel& model : m_folder.installed())
        if (!knownModel(model.name))
            say(row(model.name, amountOf(model.bytes), "", "",
                    stateOf(model.name, used).substr(2)));
    say("");
    say("This machine has " + amountOf(m_memory.available) + " of " + amountOf(m_memory.total) +
        " of memory free. Models lie in " + m_folder.path().string() + ".");
    if (!tried)
        return ModelFailure{Kind::refused, tried.error().description};
    if (m_settings.file)
        say(understoodOffline(m_settings.file->file.string(), m_settings));
    else
        say(understoodOffline(used.empty() || !canUseModels() ? std::nullopt : std::optional(used),
                              m_settings));
    return Success{};
}

std::string ModelsCommand::stateOf(const std::string& name, const std::string& used) const {
    if (const auto model = m_folder.installed(name)) {
        if (!isIntact(*model))
            return "; damaged: get it again";
        return name == used ? "; installed, in use" : "; installed";
    }
    std::error_code error;
    const auto arrived =
        std::filesystem::file_size(PartialFile::pathFor(m_folder.fileOf(name)), error);
    return error ? "" : "; " + amountOf(arrived) + " have arrived";
}

Result<ModelsCommand::Source, ModelFailure> ModelsCommand::sourceOf(
    const ModelsOptions& options) const {
    const KnownModel* known = knownModel(options.name);
    const std::string sha1(known ? known->sha1 : "");
    if (options.sha256.empty() && !known)
        return ModelFailure{Kind::misused,
                            "no model " + options.name +
                                " is known; name the SHA-256 of its file with --sha256, or take "
                                "another (nulo-service models)"};
    if (options.sha256.empty() && sha1.empty())
        return ModelFailure{Kind::misused,
                            "the digest of " + options.name +
                                " is not known here, and without one nobody can tell whether the "
                                "right file arrives; name it with --sha256, as the file's page in "
                                "the model repository shows it"};
    std::string address = options.from;
    if (address.empty())
        address = m_settings.modelSource;
    if (address.empty())
        address = usualModelSource();
    if (!address.ends_with(".bin"))
        address += (address.ends_with('/') ? "" : "/") + modelFileName(options.name);
    const auto url = parseHttpUrl(address);
    if (!url || !url->isSecure() || address.find_first_of("@#") != std::string::npos)
        return ModelFailure{Kind::misused,
                            "models are fetched from an https URL without a user name (plain http "
                            "is for this machine only), and not from " +
                                address};
    return Source{*url, sha1, options.sha256};
}

ModelOutcome ModelsCommand::get(const ModelsOptions& options, const StillWanted& stillWanted) {
    const auto source = sourceOf(options);
    if (!source)
        return source.error();
    const auto lock = m_folder.lock();
    if (!lock)
        return lock.error();
    const auto present = m_folder.installed(options.name);
    const bool isWanted =
        present && (options.sha256.empty() || options.sha256 == present->model.sha256);
    if (isWanted && isIntact(*present)) {
        say(options.name + " is installed already, and intact.");
        sayHowToUse(options.name);
        return Success{};
    }
    const KnownModel* known = knownModel(options.name);
    if (known &&
        memoryFit(std::uintmax_t{known->memoryMegabytes} * 1'000'000, m_memory) == MemoryFit::never)
        say("Note: " + options.name +
            " takes more memory than this machine has to spare; the "
            "companion will use a smaller one.");
    if (const auto fetched = fetch(options.name, source.value(), stillWanted); !fetched)
        return fetched;
    sayHowToUse(options.name);
    return Success{};
}

ModelOutcome ModelsCommand::fetch(const std::string& name, const Source& source,
                                  const StillWanted& stillWanted) {
    auto part = PartialFile::open(m_folder.fileOf(name));
    if (!part)
        return part.error();
    // Bytes of an earlier attempt may be those of another file.
    const bool resumed = part.value().size() > 0;
    auto outcome = fetchOnce(name, source, part.value(), stillWanted);
    if (outcome || outcome.error().kind != Kind::digest)
        return outcome;
    if (resumed) {
        say("What had arrived before does not go with the rest: all of it is fetched again.");
        if (auto begun = part.value().restart({source.url.text, ""}); !begun)
            return begun;
        outcome = fetchOnce(name, source, part.value(), stillWanted);
    }
    if (!outcome && outcome.error().kind == Kind::digest)
        part.value().discard();
    return outcome;
}

ModelOutcome ModelsCommand::fetchOnce(const std::string& name, const Source& source,
                                      PartialFile& part, const StillWanted& stillWanted) {
    if (part.size() > 0)
        say("Going on after " + amountOf(part.size()) + " that have arrived before.");
    say("Fetching " + source.url.text);
    FetchProgress progress(name, m_columns, m_clock, m_write);
    const auto fetched = fetchFile(
        source.url, part, m_limits,
        [&](std::uintmax_t received, std::uintmax_t total) { progress.show(received, total); },
        stillWanted);
    progress.end();
    if (!fetched)
        return fetched;
    if (const auto synced = part.sync(); !synced)
        return synced;
    const auto digests = digestsOfFile(part.path());
    if (!digests)
        return ModelFailure{
            Kind::disk, part.path().string() + " cannot be read: " + digests.error().description};
    if (!source.describes(digests.value()))
        return ModelFailure{
            Kind::digest,
            "what arrived is not " + name + ": its " +
                (source.sha256.empty()
                     ? "SHA-1 is " + digests.value().sha1 + " instead of " + source.sha1
                     : "SHA-256 is " + digests.value().sha256 + " instead of " + source.sha256) +
                "; nothing was installed"};
    const std::uintmax_t size = part.size();
    const auto installed = m_folder.install(name, part.path(), digests.value().sha256);
    if (!installed)
        return installed;
    part.discard();  // what is known of its origin
    say(name + " is installed: " + amountOf(size) + " in " + m_folder.fileOf(name).string());
    return Success{};
}

ModelOutcome ModelsCommand::remove(const std::string& name) {
    const auto lock = m_folder.lock();
    if (!lock)
        return lock.error();
    const auto removed = m_folder.remove(name);
    if (!removed)
        return removed.error();
    if (!removed.value())
        return ModelFailure{Kind::refused,
                            name + " is not installed in " + m_folder.path().string()};
    say(name + " is removed.");
    return Success{};
}

void ModelsCommand::sayHowToUse(const std::string& name) {
    if (!canUseModels())
        return say(
            "This build of nulo-service has no whisper.cpp and cannot use it: run "
            "tools/whisper and build Nulo again.");
    const auto tried = modelsToTry(m_settings, m_folder, m_memory);
    const bool isUsed =
        tried && !m_settings.file && !tried.value().empty() && tried.value().front().name == name;
    if (!isUsed)
        return say("The companion uses another one; for this one, set \"offline\": {\"model\": \"" +
                   name + "\"} in nulo-service.json.");
    say("There is nothing to configure: the companion uses it from the next dictation on. The one "
        "of "
        "the package, if it runs and this is its first model, from its next start on:");
    say("    systemctl --user try-restart nulo-service.service");
}

}  // namespace nulo::service
