#pragma once

#include <string_view>

namespace nulo {

/// The key combination that makes a program paste. Shift+Insert pastes the primary selection, the
/// other two the clipboard.
enum class PasteChord { controlV, controlShiftV, shiftInsert };

/// The chord of the program whose window has these two WM_CLASS names, compared without regard to
/// case; the class is looked up before the instance, which users rename. Any thread.
PasteChord pasteChordFor(std::string_view instance, std::string_view className);

}  // namespace nulo
