#pragma once

#include <QFont>

namespace nulo {

/// The desktop's general font at a size in points of 1/72 inch of an unscaled screen (logical
/// pixels), whatever resolution the desktop claims for it.
QFont systemFont(int size, QFont::Weight weight);

/// The desktop's monospaced font at a size that is counted so.
QFont monospacedSystemFont(int size, QFont::Weight weight);

}  // namespace nulo
