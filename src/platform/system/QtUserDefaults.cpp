#include <fcntl.h>
#include <unistd.h>
#include <QSettings>
#include <cmath>
#include <system_error>

#include "platform/Backends.h"

namespace nulo {
namespace {

namespace fs = std::filesystem;

constexpr std::uintmax_t largestFile = 1024 * 1024;

class QtUserDefaults final : public UserDefaults {
  public:
    explicit QtUserDefaults(const fs::path& file) : m_file(file) {
        std::error_code error;
        const fs::file_status status = fs::status(file, error);
        // Opening a FIFO would wait for its writer.
        if (fs::exists(status) &&
            (!fs::is_regular_file(status) || fs::file_size(file, error) > largestFile))
            return;
        m_settings = open();
        if (m_settings->status() == QSettings::FormatError) {
            // Nothing would ever be written to it again, but a person may have.
            m_settings.reset();
            fs::rename(file, file.string() + ".refused", error);
            m_settings = open();
        }
    }

    std::optional<bool> boolean(std::string_view key) const override {
        const QString text = textOf(key);
        if (text == "true" || text == "false")
            return text == "true";
        return std::nullopt;
    }
    std::optional<double> number(std::string_view key) const override {
        bool isNumber = false;
        const double number = textOf(key).toDouble(&isNumber);
        if (isNumber && std::isfinite(number))
            return number;
        return std::nullopt;
    }
    std::optional<std::string> text(std::string_view key) const override {
        if (!m_settings || !m_settings->contains(name(key)))
            return std::nullopt;
        // Qt takes commas for those of a list.
        return m_settings->value(name(key)).toStringList().join(',').toStdString();
    }
    void set(std::string_view key, bool value) override { setValue(key, value); }
    void set(std::string_view key, double value) override { setValue(key, value); }

  private:
    std::unique_ptr<QSettings> open() const {
        return std::make_unique<QSettings>(QString::fromStdString(m_file.string()),
                                           QSettings::IniFormat);
    }
    static QString name(std::string_view key) {
        return QString::fromUtf8(key.data(), static_cast<qsizetype>(key.size()));
    }
    QString textOf(std::string_view key) const {
        return m_settings ? m_settings->value(name(key)).toString() : QString();
    }
    void setValue(std::string_view key, const QVariant& value) {
        if (!m_settings)
            return;
        std::error_code ignored;
        fs::create_directories(m_file.parent_path(), ignored);
        // Qt would make it readable by everybody first.
        const int made = ::open(m_file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        if (made >= 0)
            close(made);
        m_settings->setValue(name(key), value);
        m_settings->sync();
        fs::permissions(m_file, fs::perms::owner_read | fs::perms::owner_write, ignored);
    }

    const fs::path m_file;
    std::unique_ptr<QSettings> m_settings;  // none when the path is no file of a sane size
};

}  // namespace

std::unique_ptr<UserDefaults> makeUserDefaults(const fs::path& file) {
    return std::make_unique<QtUserDefaults>(file);
}

}  // namespace nulo
