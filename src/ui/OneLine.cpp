#include "ui/OneLine.h"

#include <algorithm>

namespace nulo {

QString oneLine(std::string_view utf8, qsizetype maxLength) {
    // Four bytes a character at most; what is cut off in the middle of one is cut off again below.
    const auto bytes = std::min<qsizetype>(static_cast<qsizetype>(utf8.size()), 4 * maxLength + 4);
    QString text = QString::fromUtf8(utf8.data(), bytes);
    if (text.size() > maxLength) {
        const bool splitsPair = text.at(maxLength - 1).isHighSurrogate();
        text.truncate(splitsPair ? maxLength - 1 : maxLength);
        text += QChar(0x2026);
    }
    for (QChar& character : text)
        if (character.category() == QChar::Other_Control ||
            character.category() == QChar::Separator_Line ||
            character.category() == QChar::Separator_Paragraph)
            character = ' ';
    return text;
}

}  // namespace nulo
