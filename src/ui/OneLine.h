#pragma once

#include <QString>
#include <string_view>

namespace nulo {

/// A text to be shown in one line: line breaks, tabs and other control characters are spaces, and
/// of a long text only the beginning, with an ellipsis, is kept (about `maxLength` characters).
QString oneLine(std::string_view utf8, qsizetype maxLength = 200);

}  // namespace nulo
