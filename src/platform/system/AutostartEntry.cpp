#include <filesystem>
#include <string>

#include "base/FileIO.h"
#include "base/Text.h"
#include "platform/Backends.h"

namespace nulo {
namespace {
namespace fs = std::filesystem;

constexpr std::uintmax_t largestEntry = 64 * 1024;

/// Escapes the value of a key; a reader takes these escapes out before all else.
std::string escapedValue(std::string_view text) {
    std::string escaped;
    for (const char character : text) {
        switch (character) {
            case '\\':
                escaped += "\\\\";
                break;
            case '\n':
                escaped += "\\n";
                break;
            case '\t':
                escaped += "\\t";
                break;
            case '\r':
                escaped += "\\r";
                break;
            default:
                escaped += character;
        }
    }
    return escaped;
}

/// Quotes a word of a command line, so that no letter of it is taken for a field code. The line
/// still goes through escapedValue().
std::string quotedArgument(std::string_view text) {
    std::string quoted = "\"";
    for (const char character : text) {
        if (std::string_view("\"`$\\").find(character) != std::string_view::npos)
            quoted += '\\';
        else if (character == '%')
            quoted += '%';
        quoted += character;
    }
    return quoted + '"';
}

std::string commandLine(const std::string& program) {
    // GLib looks for the program before it has replaced "%%", but only for the first word. To env a
    // "=" means something else.
    const bool asArgument = program.find('%') != std::string::npos;
    const bool fitForEnv = program.find('=') == std::string::npos;
    return (asArgument && fitForEnv ? "/usr/bin/env " : "") + quotedArgument(program);
}

/// Quiet: what is dictated is for no log of the session.
std::string execLine(const std::string& program) {
    return "\nExec=" + escapedValue(commandLine(program)) + " --quiet\n";
}

/// The line that earlier versions wrote.
std::string loudExecLine(const std::string& program) {
    return "\nExec=" + escapedValue(commandLine(program)) + "\n";
}

std::string entryFor(const std::string& program) {
    std::string entry =
        "[Desktop Entry]\n"
        "Type=Application\n"
        "Name=Nulo\n"
        "Comment=Push-to-talk dictation\n"
        "Comment[fr]=Dictée vocale\n"
        "Icon=org.nulo.Nulo\n"
        "Terminal=false\n"
        "X-GNOME-Autostart-enabled=true";
    entry += execLine(program);
    entry += "TryExec=" + escapedValue(program) + "\n";  // nothing once it is uninstalled
    return entry;
}

/// An entry of the XDG autostart folder. The desktop reads it at the next login.
class AutostartEntry final : public LoginItem {
  public:
    AutostartEntry(const fs::path& configHome, fs::path program)
        : m_file(configHome / "autostart" / "nulo.desktop"), m_program(std::move(program)) {
        renew();
    }

    Outcome registerItem() override {
        const std::string& program = m_program.native();
        if (!m_program.is_absolute() || !isValidUtf8(program))
            return failure("the program's own path, \"" + program + "\", cannot be written there");
        std::error_code error;
        fs::create_directories(m_file.parent_path(), error);
        if (error)
            return failure(error.message());
        const Outcome written = replaceFile(m_file, entryFor(program));
        return written ? written : Error{"cannot write " + written.error().description};
    }

  private:
    void renew() const {
        auto entry = readFile(m_file, largestEntry);
        const std::string loud = loudExecLine(m_program.native());
        const std::size_t at = entry ? entry->find(loud) : std::string::npos;
        if (at != std::string::npos)
            (void)replaceFile(m_file,
                              entry->replace(at, loud.size(), execLine(m_program.native())));
    }

    Error failure(const std::string& why) const {
        return {"cannot write " + m_file.string() + ": " + why};
    }

    const fs::path m_file;
    const fs::path m_program;
};

}  // namespace

std::unique_ptr<LoginItem> makeLoginItem(const fs::path& configHome, const fs::path& program) {
    return std::make_unique<AutostartEntry>(configHome, program);
}

}  // namespace nulo
