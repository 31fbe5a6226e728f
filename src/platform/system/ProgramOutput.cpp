#include <QProcess>

#include "platform/Backends.h"

namespace nulo {

std::optional<std::string> programOutput(const std::filesystem::path& program,
                                         const std::vector<std::string>& arguments) {
    constexpr int longestRun = 5000;  // ms
    constexpr qsizetype largestOutput = 64 * 1024;
    QStringList list;
    for (const std::string& argument : arguments)
        list.append(QString::fromStdString(argument));
    QProcess process;
    process.setStandardErrorFile(QProcess::nullDevice());
    process.start(QString::fromStdString(program.string()), list, QIODevice::ReadOnly);
    if (!process.waitForFinished(longestRun)) {
        process.kill();
        process.waitForFinished(longestRun);
        return std::nullopt;
    }
    if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0)
        return std::nullopt;
    return process.readAllStandardOutput().left(largestOutput).toStdString();
}

}  // namespace nulo
